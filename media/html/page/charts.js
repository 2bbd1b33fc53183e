// The charts of one time line: dygraphs with one axis for all, which goes by pictures and not by seconds.

function colourOf(name) {
  return getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();
}

// What a wheel, a drag or a finger does; `line` is the time line whose window moves.
function interactionOf(line) {
  const wheel = (event, graph) => {
    event.preventDefault();
    const [from, to] = line.window;
    const box = graph.graphDiv.getBoundingClientRect();
    const area = graph.getArea();
    const share = Math.min(1, Math.max(0, (event.clientX - box.left - area.x) / area.w));
    const sideways = event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY);
    if (sideways) return line.move(Math.sign(event.deltaX || event.deltaY) * 0.1);
    return line.zoom(event.deltaY < 0 ? 0.8 : 1.25, from + share * (to - from));
  };
  return {
    ...Dygraph.defaultInteractionModel,
    wheel,
    dblclick: (event) => { event.preventDefault(); line.showAll(); },
  };
}

const AXIS_WIDTH = 92;

// Charts have headings and words of their own. The library's legend would style elements by markup, which the policy of
// the page refuses.
Dygraph.PLUGINS = Dygraph.PLUGINS.filter((plugin) => plugin !== Dygraph.Plugins.Legend);

// One chart of a time line. `options.rows(from, to)` gives what is drawn of a window, and how many pictures share a row.
class Chart {
  constructor(line, parent, options) {
    this.line = line;
    this.options = options;
    this.div = el('div', { class: `plot ${options.name}`, 'data-chart': options.name });
    // Its size must stand before it is drawn.
    if (options.height) this.div.style.height = `${options.height}px`;
    parent.append(this.div);
    const [from, to] = line.window;
    this.graph = new Dygraph(this.div, options.rows(from, to), {
      labels: options.labels,
      dateWindow: [from, to],
      legend: 'never',
      drawGapEdgePoints: false,
      connectSeparatedPoints: false,
      highlightCircleSize: 0,
      includeZero: true,
      xRangePad: 0,
      animatedZooms: false,
      interactionModel: interactionOf(line),
      axes: {
        x: { axisLabelFormatter: (n) => line.axisText(n), pixelsPerLabel: 110, drawGrid: false, axisLabelWidth: 100, drawAxis: Boolean(options.axis), axisLabelHeight: 14 },
        y: { axisLabelWidth: AXIS_WIDTH, pixelsPerLabel: 28, axisLabelFormatter: options.yText },
      },
      underlayCallback: (canvas, area, graph) => this.underlay(canvas, area, graph),
      drawCallback: (graph, initial) => { if (!initial) line.follow(graph.xAxisRange()); },
      highlightCallback: (event, x) => line.point(event, x),
      unhighlightCallback: () => line.unpoint(),
      clickCallback: (event, x) => line.choose(Math.round(x), true),
      ...this.theme(),
      ...options.graph,
    });
  }

  theme() {
    return { gridLineColor: colourOf('line'), axisLineColor: colourOf('line'), ...(this.options.colours ? { colors: this.options.colours() } : {}) };
  }

  // The picture that is looked at, as a band behind all else.
  underlay(canvas, area, graph) {
    if (this.line.chosen < 0) return;
    const left = graph.toDomXCoord(this.line.chosen - 0.5);
    const right = graph.toDomXCoord(this.line.chosen + 0.5);
    canvas.fillStyle = colourOf('chosen');
    canvas.fillRect(left, area.y, Math.max(2, right - left), area.h);
  }

  update(from, to) {
    this.graph.updateOptions({ file: this.options.rows(from, to), dateWindow: [from, to] });
  }

  // Colours of the other theme, or another picture that is looked at.
  redraw() {
    this.graph.updateOptions(this.theme());
  }
}

// Patterns that tell kinds of pictures apart without colour, where bars are wide enough for them.
function hatch(canvas, colour, kind) {
  const tile = document.createElement('canvas');
  tile.width = tile.height = 6;
  const pen = tile.getContext('2d');
  pen.fillStyle = colour;
  pen.fillRect(0, 0, 6, 6);
  pen.strokeStyle = colourOf('ground');
  pen.lineWidth = 1;
  pen.beginPath();
  if (kind === 'P') { pen.moveTo(-1, 7); pen.lineTo(7, -1); }
  if (kind === 'B') { pen.moveTo(0, 3); pen.lineTo(6, 3); }
  if (kind === '?') { pen.moveTo(3, 0); pen.lineTo(3, 6); }
  pen.stroke();
  return canvas.createPattern(tile, 'repeat');
}
