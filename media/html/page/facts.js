// One coded video stream: its packets' columns, in coding order, and what they mean.

const FLAG = { key: 1, noPts: 2, noDts: 4, secondField: 8, noPicture: 16, noPosition: 32, damaged: 64 };
const ENTRIES = ['', 'IDR', 'CRA', 'BLA', 'RP', 'GOP'];
const ENTRY_WORDS = ['', 'IDR picture', 'CRA picture', 'BLA picture', 'recovery point', 'group of pictures'];
const STRUCTURES = ['not known', 'frame', 'top field', 'bottom field', 'top and bottom field', 'bottom and top field'];
const SLICES = [[1, 'I'], [2, 'P'], [4, 'B'], [8, 'S']];

class StreamFacts {
  constructor(data, unitsText, perBlock) {
    const count = data.packets;
    const column = (name, Type) => columnOf(data.columns[name], count, Type);
    this.data = data;
    this.count = count;
    this.size = column('size', Float64Array);
    this.pts = column('pts', Float64Array);
    this.dts = column('dts', Float64Array);
    this.position = column('position', Float64Array);
    this.flags = column('flags', Uint8Array);
    this.slices = column('slices', Uint8Array);
    this.entry = column('entry', Uint8Array);
    this.structure = column('structure', Uint8Array);
    this.picStruct = column('picStruct', Uint8Array);
    this.clock = column('clock', Uint32Array);
    this.place = column('place', Int32Array);
    this.sets = spreadRuns(data.setsInForce, count);
    this.look = spreadRuns(data.looks, count);
    this.units = new UnitBlocks(unitsText, perBlock);
    this.counts = data.captions ? columnOf(data.captions.counts, data.pictures, Int16Array) : null;
    this.buffer = data.buffer ? columnOf(data.buffer.before, count, Float64Array) : null;
    this.bufferMarks = data.buffer ? columnOf(data.buffer.marks, count, Uint8Array) : null;
    this.jumps = new Set(data.jumps);
    this.placeOrder();
  }

  // Packets in presentation order; those that begin no picture stay behind the one that they belong to.
  placeOrder() {
    const byPlace = new Int32Array(this.data.pictures).fill(-1);
    for (let i = 0; i < this.count; ++i) if (this.place[i] >= 0) byPlace[this.place[i]] = i;
    this.presentation = new Int32Array(this.count);
    this.coding = Int32Array.from({ length: this.count }, (_, i) => i);
    let next = 0;
    for (let i = 0; i < this.count && this.place[i] < 0; ++i) this.presentation[next++] = i;
    for (const first of byPlace) {
      if (first < 0) continue;
      this.presentation[next++] = first;
      for (let i = first + 1; i < this.count && this.place[i] < 0; ++i) this.presentation[next++] = i;
    }
  }

  order(name) { return name === 'coding' ? this.coding : this.presentation; }

  // The letter by which a picture goes: of two fields that of the first.
  letter(packet) {
    const kinds = this.slices[packet] & 15;
    return kinds & 4 ? 'B' : kinds & 2 ? 'P' : kinds & 1 ? 'I' : kinds & 8 ? 'S' : '?';
  }

  // The kinds of its slices in words: "I P", and of two fields "I + P".
  slicesText(packet) {
    const text = (kinds) => SLICES.filter(([bit]) => kinds & bit).map(([, name]) => name).join(' ');
    const second = text(this.slices[packet] >> 4);
    return (text(this.slices[packet] & 15) || '?') + (second ? ` + ${second}` : '');
  }

  typeText(packet) {
    const entry = ENTRIES[this.entry[packet]];
    return entry ? `${this.slicesText(packet)} (${entry})` : this.slicesText(packet);
  }

  beginsGroup(packet) {
    return this.entry[packet] !== 0;
  }

  seconds(ticks) { return ticks * this.data.timeBase[0] / this.data.timeBase[1]; }
  ptsOf(packet) { return this.flags[packet] & FLAG.noPts ? null : this.seconds(this.pts[packet]); }
  dtsOf(packet) { return this.flags[packet] & FLAG.noDts ? null : this.seconds(this.dts[packet]); }
  positionOf(packet) { return this.flags[packet] & FLAG.noPosition ? null : this.position[packet]; }

  clockText(packet) {
    if (this.clock[packet] === 0) return '';
    const bits = this.clock[packet] - 1;
    const two = (number) => String(number).padStart(2, '0');
    return `${two(bits >>> 22)}:${two(bits >>> 16 & 63)}:${two(bits >>> 10 & 63)}${bits & 1 ? ';' : ':'}${two(bits >>> 1 & 511)}`;
  }

  structureText(packet) {
    const said = this.picStruct[packet] ? `, pic_struct ${this.picStruct[packet] - 1}` : '';
    return STRUCTURES[this.structure[packet]] + said;
  }

  // Triplets of the picture; null where it has no captions.
  tripletsOf(packet) {
    if (!this.counts || this.place[packet] < 0) return null;
    const count = this.counts[this.place[packet]];
    return count < 0 ? null : count;
  }

  // The sets in force: places in the stream's list, VPS, SPS, PPS.
  setsOf(packet) {
    const text = this.sets[packet] < 0 ? '' : this.data.texts[this.sets[packet]];
    return text.split(' ').filter((place) => place !== '').map(Number);
  }

  setName(place) {
    const set = this.data.sets.list[place];
    return set ? `${set.name} ${set.id} (no. ${place + 1})` : '';
  }

  setsText(packet) {
    return this.setsOf(packet).filter((place) => place >= 0).map((place) => this.setName(place)).join(', ');
  }

  lookText(packet) { return this.look[packet] < 0 ? '' : this.data.texts[this.look[packet]]; }

  // Times by which an order goes, in seconds; numbers of pictures over the rate where there are none.
  timesIn(order, name) {
    const times = new Float64Array(order.length);
    const missing = name === 'coding' ? FLAG.noDts : FLAG.noPts;
    const ticks = name === 'coding' ? this.dts : this.pts;
    const rate = this.data.rate > 0 ? this.data.rate : 25;
    let timed = order.length > 0;
    for (let n = 0; n < order.length; ++n) timed = timed && !(this.flags[order[n]] & missing);
    for (let n = 0; n < order.length; ++n) times[n] = timed ? this.seconds(ticks[order[n]]) : n / rate;
    return times;
  }
}
