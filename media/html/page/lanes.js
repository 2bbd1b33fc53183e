// The tracks below the charts: what holds over a run of pictures, drawn as a box with its words.

// A lane: its name; `of(packet, n)` gives a number that is the same as long as nothing changes, -1 for nothing;
// `text(packet, n)` the words of the run that begins there; `alarm(packet, n)` true where something is to be seen.
function lanesOf(line) {
  const { facts } = line;
  const lanes = [];
  let group = 0;
  const groups = Int32Array.from(line.order, (packet) => (facts.beginsGroup(packet) ? ++group : group));
  lanes.push({ name: 'Groups', of: (packet, n) => groups[n], text: (packet, n, length) => `${ENTRIES[facts.entry[packet]] || 'from'} ${length}` });
  lanes.push({ name: 'Fields', of: (packet) => facts.structure[packet] * 32 + facts.picStruct[packet], text: (packet) => facts.structureText(packet) });
  if (facts.clock.some((clock) => clock !== 0)) {
    let run = 0;
    const jumps = Uint8Array.from(line.order, (packet) => (facts.jumps.has(facts.place[packet]) ? 1 : 0));
    const runs = Int32Array.from(line.order, (packet, n) => (facts.clock[packet] === 0 && !facts.data.codec.startsWith('mpeg2') ? -1 : run += jumps[n]));
    lanes.push({ name: 'Timecode', of: (packet, n) => runs[n], text: (packet) => facts.clockText(packet), alarm: (packet, n) => jumps[n] === 1 });
  }
  if (facts.counts) {
    lanes.push({
      name: 'Captions',
      of: (packet) => facts.tripletsOf(packet) ?? -1,
      text: (packet) => `${facts.tripletsOf(packet)} triplets`,
      alarm: (packet) => facts.data.captions.wanted !== null && facts.tripletsOf(packet) !== null && facts.tripletsOf(packet) !== facts.data.captions.wanted,
    });
    for (const service of facts.data.captions.services.filter((one) => one.lines.length).slice(0, 6)) lanes.push(cueLane(line, service));
  }
  if (facts.look.some((look) => look >= 0 && facts.data.texts[look] !== ''))
    lanes.push({ name: 'Colour, HDR', of: (packet) => facts.look[packet], text: (packet) => facts.lookText(packet) });
  if (facts.data.sets && facts.data.sets.list.length)
    lanes.push({ name: 'Sets', of: (packet) => facts.sets[packet], text: (packet) => facts.setsText(packet) });
  const found = new Map();
  for (const finding of line.findings) if (finding.picture >= 0) found.set(finding.picture, [...(found.get(finding.picture) || []), finding]);
  if (found.size)
    lanes.push({ name: 'Findings', of: (packet, n) => (found.has(packet) ? n : -1), text: (packet) => `! ${found.get(packet).map((one) => one.what).join(', ')}`, alarm: () => true });
  return lanes;
}

// The captions of a service over the pictures that they stand on.
function cueLane(line, service) {
  const { facts } = line;
  const cues = new Int32Array(facts.count).fill(-1);
  const times = facts.timesIn(facts.presentation, 'presentation');
  let n = 0;
  service.lines.forEach(([begin, end], number) => {
    while (n > 0 && times[n - 1] - times[0] >= begin - 1e-3) --n;
    while (n < times.length && times[n] - times[0] < begin - 1e-3) ++n;
    for (; n < times.length && times[n] - times[0] < end - 1e-3; ++n) cues[facts.presentation[n]] = number;
  });
  return { name: service.name, of: (packet) => cues[packet], text: (packet) => service.lines[cues[packet]][2].replace(/\s+/g, ' ') };
}

const LANE_HEIGHT = 24;

function drawLane(line, event, lane, row) {
  const canvas = event.drawingContext;
  const area = event.plotArea;
  const graph = event.dygraph;
  const [from, to] = line.window;
  const top = area.y + row * area.h / line.lanes.length + 2;
  const height = area.h / line.lanes.length - 4;
  const first = Math.max(0, Math.ceil(from - 0.5));
  const last = Math.min(line.count - 1, Math.floor(to + 0.5));
  const colours = [colourOf('lane'), colourOf('lane-other')];
  const pixel = area.w / (to - from);
  let shade = 0;
  let drawnTo = -1;
  for (let n = first; n <= last;) {
    const packet = line.order[n];
    const value = lane.of(packet, n);
    let begin = n;
    let end = n + 1;
    while (end <= last && lane.of(line.order[end], end) === value) ++end;
    n = end;
    shade = 1 - shade;
    if (value < 0) continue;
    // Words are those of the run's beginning, wherever the window begins.
    if (begin === first) while (begin > 0 && lane.of(line.order[begin - 1], begin - 1) === value) --begin;
    const left = graph.toDomXCoord(Math.max(begin, from) - 0.5);
    const right = graph.toDomXCoord(end - 0.5);
    const alarm = lane.alarm && lane.alarm(line.order[begin], begin);
    if (!alarm && right < drawnTo + 1) continue;
    drawnTo = right;
    canvas.fillStyle = alarm ? colourOf('bad') : colours[shade];
    canvas.fillRect(Math.max(left, area.x), top, Math.max(alarm ? 2 : 0.8, right - left - (pixel > 6 ? 1 : 0)), height);
    if (right - left < 16) continue;
    canvas.save();
    canvas.beginPath();
    canvas.rect(Math.max(left, area.x), top, right - left - 2, height);
    canvas.clip();
    canvas.fillStyle = alarm ? colourOf('ground') : colourOf('lane-text');
    const length = lane.name === 'Groups' ? groupLength(line, lane, begin) : 0;
    canvas.fillText((alarm && lane.name === 'Timecode' ? '\u26a1 ' : '') + lane.text(line.order[begin], begin, length), Math.max(left, area.x) + 4, top + height - 5);
    canvas.restore();
  }
}

function groupLength(line, lane, begin) {
  let end = begin;
  const value = lane.of(line.order[begin], begin);
  while (end < line.count && lane.of(line.order[end], end) === value) ++end;
  return end - begin;
}

function laneChart(line) {
  const height = () => line.lanes.length;
  return {
    name: 'lanes',
    axis: true,
    height: line.lanes.length * LANE_HEIGHT + 22,
    labels: ['picture', 'lanes'],
    rows(from, to) {
      // One row a picture that the pointer can find.
      const rows = [];
      eachRow(from, to, line.count, () => 0, (n) => rows.push([n, 0]));
      return rows.length ? rows : [[0, 0]];
    },
    graph: {
      valueRange: [0, 1],
      plotter: (event) => {
        event.drawingContext.font = '12px system-ui, sans-serif';
        event.drawingContext.textAlign = 'left';
        line.lanes.forEach((lane, row) => drawLane(line, event, lane, row));
      },
      axes: {
        x: { axisLabelFormatter: (n) => line.axisText(n), pixelsPerLabel: 110, drawGrid: false, axisLabelWidth: 100 },
        y: { axisLabelWidth: AXIS_WIDTH, drawGrid: false, ticker: () => line.lanes.map((lane, row) => ({ v: 1 - (row + 0.5) / height(), label: lane.name })) },
      },
    },
  };
}
