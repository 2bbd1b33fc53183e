// What the charts of a time line draw: sizes, bit rates, the coded picture buffer. A window of more pictures than rows
// can be seen is drawn by its largest ones.

const MOST_ROWS = 2400;

// The rows of a window: one a picture, or one for each of `step` pictures.
function stepOf(from, to) {
  return Math.max(1, Math.ceil((to - from) / MOST_ROWS));
}

// For each row the picture, by its place in the order, of which `value` is the largest; `visit(place, value)`.
function eachRow(from, to, count, value, visit) {
  const step = stepOf(from, to);
  const first = Math.max(0, Math.floor(from / step) * step);
  for (let at = first; at < count && at <= to + step; at += step) {
    let best = at;
    for (let n = at + 1; n < at + step && n < count; ++n) if (value(n) > value(best)) best = n;
    visit(best, value(best));
  }
  return step;
}

const SLICE_COLOURS = { I: 'slice-i', P: 'slice-p', B: 'slice-b', S: 'slice-p', '?': 'slice-none' };

// Bars of sizes, in colours and patterns by slice type, with letters where there is room, and marks over pictures where
// decoding can begin.
function drawSizes(line, event) {
  const canvas = event.drawingContext;
  const area = event.plotArea;
  const [from, to] = line.window;
  const step = stepOf(from, to);
  const width = area.w / (to - from) * step;
  const bar = width > 3 ? width * 0.86 : width;
  const zero = event.dygraph.toDomYCoord(0);
  const fills = {};
  for (const [letter, name] of Object.entries(SLICE_COLOURS))
    fills[letter] = bar >= 7 && letter !== 'I' ? hatch(canvas, colourOf(name), letter) : colourOf(name);
  const entryColour = colourOf('entry');
  const ground = colourOf('ground');
  let drawn = 0;
  let lastMark = -100;
  canvas.font = '600 10px system-ui, sans-serif';
  canvas.textAlign = 'center';
  for (const point of event.points) {
    if (point.xval < from - 0.5 * step || point.xval > to + 0.5 * step) continue;
    ++drawn;
    const packet = line.order[point.xval];
    const letter = line.facts.letter(packet);
    canvas.fillStyle = fills[letter];
    canvas.fillRect(point.canvasx - bar / 2, point.canvasy, bar, Math.max(1, zero - point.canvasy));
    if (bar >= 12) {
      canvas.fillStyle = ground;
      canvas.fillRect(point.canvasx - 5, zero - 13, 10, 11);
      canvas.fillStyle = colourOf('text');
      canvas.fillText(letter, point.canvasx, zero - 4);
    }
    if (step === 1 && line.facts.beginsGroup(packet) && point.canvasx - lastMark > 3) {
      canvas.fillStyle = entryColour;
      canvas.beginPath();
      canvas.moveTo(point.canvasx - 4, point.canvasy - 8);
      canvas.lineTo(point.canvasx + 4, point.canvasy - 8);
      canvas.lineTo(point.canvasx, point.canvasy - 2);
      canvas.fill();
      if (point.canvasx - lastMark > 30) canvas.fillText(ENTRIES[line.facts.entry[packet]], Math.max(area.x + 11, point.canvasx), point.canvasy - 11);
      lastMark = point.canvasx;
    }
  }
  line.root.dataset.bars = String(drawn);
}

function sizeChart(line) {
  const value = (n) => line.facts.size[line.order[n]];
  return {
    name: 'sizes',
    labels: ['picture', 'bytes'],
    yText: (number) => (number >= 1e6 ? `${number / 1e6} MB` : number >= 1e3 ? `${number / 1e3} kB` : `${number} B`),
    rows(from, to) {
      const rows = [];
      eachRow(from, to, line.count, value, (n, size) => rows.push([n, size]));
      return rows.length ? rows : [[0, 0]];
    },
    graph: { plotter: (event) => drawSizes(line, event), yRangePad: 26 },
  };
}

// Bits a second up to each picture over one second, and over the group of pictures that it stands in.
function ratesOf(line) {
  const { facts, order, count } = line;
  const times = facts.timesIn(order, line.orderName);
  const second = new Float64Array(count);
  const group = new Float64Array(count);
  const length = count > 1 ? (times[count - 1] - times[0]) / (count - 1) : 1;
  let sum = 0;
  let tail = 0;
  let early = 0;
  for (let n = 0; n < count; ++n) {
    sum += facts.size[order[n]];
    while (tail < n && times[tail] <= times[n] - 1 + 1e-6) sum -= facts.size[order[tail++]];
    second[n] = sum * 8;
    if (times[n] - times[0] + length < 1 - 1e-6) early = n + 1;
  }
  // Until a second has passed it is the rate of the first one; of all, where there is no whole one.
  const passed = count > 0 ? times[count - 1] - times[0] + length : 0;
  const first = early < count ? second[early] : passed > 0 ? sum * 8 / passed : 0;
  second.fill(first, 0, early);
  for (let begin = 0; begin < count;) {
    let end = begin + 1;
    let bytes = facts.size[order[begin]];
    for (; end < count && !facts.beginsGroup(order[end]); ++end) bytes += facts.size[order[end]];
    const until = end < count ? times[end] : times[count - 1] + length;
    const rate = until > times[begin] ? bytes * 8 / (until - times[begin]) : 0;
    group.fill(rate, begin, end);
    begin = end;
  }
  return { second, group };
}

function rateText(bits) {
  return bits >= 1e6 ? `${+(bits / 1e6).toFixed(2)} Mbit/s` : `${+(bits / 1e3).toFixed(1)} kbit/s`;
}

function rateChart(line) {
  return {
    name: 'rates',
    labels: ['picture', 'one second', 'group of pictures'],
    colours: () => [colourOf('rate'), colourOf('rate-gop')],
    yText: rateText,
    rows(from, to) {
      const { second, group } = line.rates;
      const rows = [];
      eachRow(from, to, line.count, (n) => second[n], (n, rate) => rows.push([n, rate, group[n]]));
      return rows.length ? rows : [[0, 0, 0]];
    },
    graph: { strokeWidth: 1.5, series: { 'group of pictures': { stepPlot: true, strokePattern: [6, 3] } }, yRangePad: 4 },
  };
}

// From how full the buffer is when a picture is taken out, down to what is then left; a triangle and a U where the picture
// was not whole by then.
function drawBuffer(line, event) {
  if (event.seriesIndex !== 0) return;
  const canvas = event.drawingContext;
  const area = event.plotArea;
  const graph = event.dygraph;
  const [from, to] = line.window;
  const step = stepOf(from, to);
  const width = Math.max(1, area.w / (to - from) * step * 0.86);
  const full = colourOf('full');
  const bad = colourOf('bad');
  const marks = [];
  for (const point of event.points) {
    if (point.xval < from - step || point.xval > to + step) continue;
    const packet = line.order[point.xval];
    if (line.facts.buffer[packet] < 0) continue;
    const after = Math.max(0, line.facts.buffer[packet] - line.facts.size[packet] * 8);
    const top = point.canvasy;
    const marked = line.facts.bufferMarks[packet];
    canvas.fillStyle = marked ? bad : full;
    canvas.fillRect(point.canvasx - width / 2, top, width, Math.max(1.5, graph.toDomYCoord(after) - top));
    if (marked) marks.push([point.canvasx, marked]);
  }
  canvas.fillStyle = bad;
  canvas.font = '600 10px system-ui, sans-serif';
  canvas.textAlign = 'center';
  let last = -100;
  for (const [x, marked] of marks) {
    if (x - last < 9) continue;
    canvas.fillText(marked & 1 ? '\u25bcU' : '\u25b2O', x, area.y + 10);
    last = x;
  }
  canvas.strokeStyle = bad;
  canvas.setLineDash([5, 4]);
  canvas.beginPath();
  const limit = Math.round(graph.toDomYCoord(line.facts.data.buffer.size)) + 0.5;
  canvas.moveTo(area.x, limit);
  canvas.lineTo(area.x + area.w, limit);
  canvas.stroke();
  canvas.setLineDash([]);
}

function bufferChart(line) {
  const { facts } = line;
  // Of pictures that share a row one that goes wrong counts most, else the lowest fullness.
  const weight = (n) => (facts.bufferMarks[line.order[n]] ? 1e15 : 0) - facts.buffer[line.order[n]];
  return {
    name: 'buffer',
    labels: ['picture', 'bits'],
    yText: (bits) => (bits >= 1e6 ? `${bits / 1e6} Mbit` : `${bits / 1e3} kbit`),
    rows(from, to) {
      const rows = [];
      eachRow(from, to, line.count, weight, (n) => rows.push([n, Math.max(0, facts.buffer[line.order[n]])]));
      return rows.length ? rows : [[0, 0]];
    },
    graph: { plotter: (event) => drawBuffer(line, event), valueRange: [0, facts.data.buffer.size * 1.18] },
  };
}
