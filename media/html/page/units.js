// The picture that is looked at: its facts, and its units.

function hexOf(bytes) {
  return Array.from(bytes, (byte) => byte.toString(16).padStart(2, '0').toUpperCase()).join(' ');
}

function unitName(facts, type) {
  if (facts.data.unitNames[type] !== undefined) return facts.data.unitNames[type];
  const known = { 0: 'picture', 178: 'user data', 179: 'sequence header', 181: 'extension', 183: 'end of sequence', 184: 'group of pictures' };
  if (type >= 1 && type <= 175) return 'slices';
  return known[type] || (type < 0 ? 'no header' : `start code ${type.toString(16).toUpperCase()}`);
}

function pictureFacts(line, n) {
  const { facts } = line;
  const packet = line.order[n];
  const pairs = [
    ['Type', facts.typeText(packet)],
    ['Size', `${grouped(facts.size[packet])} bytes`],
    ['Presented at', `${secondsText(facts.ptsOf(packet))}${facts.ptsOf(packet) === null ? '' : ` (PTS ${facts.pts[packet]})`}`],
    ['Decoded at', `${secondsText(facts.dtsOf(packet))}${facts.dtsOf(packet) === null ? '' : ` (DTS ${facts.dts[packet]})`}`],
    ['Coded as', facts.structureText(packet)],
  ];
  if (facts.entry[packet]) pairs.splice(1, 0, ['Entry', ENTRY_WORDS[facts.entry[packet]]]);
  if (facts.clock[packet]) pairs.push(['Timecode', facts.clockText(packet)]);
  if (facts.counts) pairs.push(['Captions', facts.tripletsOf(packet) === null ? 'none' : `${facts.tripletsOf(packet)} triplets`]);
  if (facts.buffer && facts.buffer[packet] >= 0) {
    const mark = ['', ', underflow: it is not whole in time', ', overflow', ', underflow and overflow'][facts.bufferMarks[packet]];
    pairs.push(['Coded picture buffer', `${grouped(facts.buffer[packet])} bits when it is taken out${mark}`]);
  }
  if (facts.lookText(packet)) pairs.push(['Colour, HDR', facts.lookText(packet)]);
  if (facts.setsText(packet)) pairs.push(['Sets in force', facts.setsText(packet)]);
  pairs.push(['In the file at', facts.positionOf(packet) === null ? 'not known' : `byte ${grouped(facts.positionOf(packet))}`]);
  if (facts.flags[packet] & FLAG.damaged) pairs.push(['Damage', 'bytes at its end belong to no unit']);
  return pairs;
}

async function showPicture(line, panel, n) {
  const { facts } = line;
  const packet = line.order[n];
  const title = el('h4', {}, `Picture ${n} in ${line.orderName} order, ${packet} in coding order`);
  panel.replaceChildren(title, factsOf(pictureFacts(line, n)));
  let units;
  try {
    units = await facts.units.of(packet);
  } catch (error) {
    panel.append(el('p', { class: 'note' }, 'This browser cannot unpack the units.'));
    return;
  }
  if (line.chosen !== n) return;
  panel.append(tableOf('Its units; of slices the first 8 bytes, of others up to 32',
    [['Offset', true], ['Type', true], ['Name'], ['Bytes', true], ['Says', false, 'lines'], ['Begins with', false, 'code']],
    units.map((unit) => [grouped(unit.offset), String(unit.type), unitName(facts, unit.type), grouped(unit.size), unit.text, hexOf(unit.first)])));
}
