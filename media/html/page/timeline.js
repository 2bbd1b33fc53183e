// The time line of one stream: its charts, the window that they show, the picture that is looked at.

class Timeline {
  constructor(parent, facts, findings) {
    this.facts = facts;
    this.findings = findings;
    this.count = facts.count;
    this.chosen = -1;
    this.charts = [];
    this.busy = false;
    this.window = [-0.5, Math.max(0.5, this.count - 0.5)];
    this.root = el('div', { 'data-stream': String(facts.data.index) });
    parent.append(this.root);
    this.setOrder('presentation');
    this.build();
    matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => { this.drawKey(); this.charts.forEach((chart) => chart.redraw()); });
  }

  setOrder(name) {
    const packet = this.chosen >= 0 ? this.order[this.chosen] : -1;
    this.orderName = name;
    this.order = this.facts.order(name);
    this.chosen = packet >= 0 ? this.order.indexOf(packet) : -1;
    this.rates = ratesOf(this);
    this.lanes = lanesOf(this);
    this.root.dataset.order = name;
  }

  build() {
    const { facts } = this;
    const title = `Stream ${facts.data.index}: ${facts.data.codec}, ${facts.data.width} \u00d7 ${facts.data.height}`;
    const kinds = {};
    for (let i = 0; i < this.count; ++i) kinds[facts.letter(i)] = (kinds[facts.letter(i)] || 0) + 1;
    const counted = Object.entries(kinds).sort().map(([letter, count]) => `${grouped(count)} ${letter}`).join(', ');
    this.root.append(el('h3', {}, title), el('p', { class: 'soft counts' }, `${grouped(this.count)} packets: ${counted}`), this.tools());
    this.key = el('p', { class: 'key', 'aria-hidden': 'true' });
    this.root.append(this.key);
    this.drawKey();
    this.plots = el('div', { class: 'plots', tabindex: '0', role: 'group', 'aria-label': `Time line of stream ${facts.data.index}. Arrow keys go from picture to picture, plus and minus zoom, page up and page down move, 0 shows all.`, onkeydown: (event) => this.pressed(event) });
    this.root.append(this.plots);
    this.said = el('p', { class: 'soft said', role: 'status', 'aria-live': 'polite' });
    this.add('Bytes of each picture', sizeChart(this));
    this.add('Bit rate over one second (line) and over each group of pictures (dashed)', rateChart(this));
    if (facts.buffer) this.add(this.bufferTitle(), bufferChart(this));
    this.add('Tracks', laneChart(this));
    this.tip = el('div', { class: 'tip', hidden: true });
    this.plots.append(this.tip);
    this.panel = el('div', { class: 'chosen', hidden: true });
    this.root.append(this.said, this.panel, ...this.places('Timecode jumps', 'jumps', this.jumps()), ...this.places('Buffer goes wrong', 'wrong', this.wrong()));
    new ResizeObserver(() => this.charts.forEach((chart) => chart.graph.resize())).observe(this.plots);
    this.table = new PictureTable(this);
    this.root.append(this.table.details);
    this.tell();
  }

  // Each timecode that does not go on, by its packet, with the one before it.
  jumps() {
    const { facts } = this;
    const jumps = [];
    let before = '';
    for (const packet of facts.presentation) {
      if (facts.clock[packet] === 0) continue;
      if (facts.jumps.has(facts.place[packet])) jumps.push([packet, `${before} \u2192 ${facts.clockText(packet)}`]);
      before = facts.clockText(packet);
    }
    return jumps;
  }

  wrong() {
    const { facts } = this;
    const wrong = [];
    if (!facts.buffer) return wrong;
    facts.bufferMarks.forEach((mark, packet) => { if (mark) wrong.push([packet, ['', 'underflow', 'overflow', 'both'][mark]]); });
    return wrong;
  }

  // What is marked in the charts, in words, each a way to its picture.
  places(title, name, places) {
    if (!places.length) return [];
    const most = 50;
    const links = places.slice(0, most).map(([packet, text]) => el('li', {}, el('button', { type: 'button', class: 'link', onclick: () => this.choosePacket(packet) }, `picture ${packet} as coded`), `: ${text}`));
    const more = places.length > most ? `, the first ${most} of them` : '';
    return [el('details', { class: `paper ${name}` }, el('summary', {}, `${title}: ${grouped(places.length)}${more}`), el('ul', {}, ...links))];
  }

  bufferTitle() {
    const { buffer } = this.facts.data;
    const wrong = buffer.underflows + buffer.overflows === 0 ? 'no underflow'
      : `${buffer.underflows} underflows (U), ${buffer.overflows} overflows (O)`;
    return `Coded picture buffer before and after each picture: ${buffer.nal ? 'NAL' : 'VCL'} HRD, ${rateText(buffer.bitRate)} ${buffer.constant ? 'constant' : 'variable'}` +
      `${buffer.schedules > 1 ? `, first of ${buffer.schedules} schedules` : ''}, ${grouped(buffer.size)} bits; ${wrong}`;
  }

  add(title, options) {
    this.plots.append(el('h4', {}, title));
    this.charts.push(new Chart(this, this.plots, options));
  }

  tools() {
    const name = `order-${this.facts.data.index}`;
    const radio = (value, text) => el('label', {}, el('input', { type: 'radio', name, value, checked: value === 'presentation', onchange: () => this.reorder(value) }), ` ${text}`);
    const goTo = el('input', { type: 'number', min: '0', max: String(this.count - 1), 'aria-label': 'Number of the picture to go to', class: 'goto', onchange: (event) => this.choose(Number(event.target.value), true, true) });
    return el('div', { class: 'tools' },
      el('fieldset', {}, el('legend', {}, 'Order'), radio('presentation', 'as shown'), radio('coding', 'as coded')),
      el('span', {}, el('button', { type: 'button', class: 'in', onclick: () => this.zoom(0.5) }, 'Zoom in'), ' ',
        el('button', { type: 'button', class: 'out', onclick: () => this.zoom(2) }, 'Zoom out'), ' ',
        el('button', { type: 'button', class: 'all', onclick: () => this.showAll() }, 'All')),
      el('span', {}, el('button', { type: 'button', 'aria-label': 'Earlier pictures', onclick: () => this.move(-0.5) }, '\u25c0'), ' ',
        el('button', { type: 'button', 'aria-label': 'Later pictures', onclick: () => this.move(0.5) }, '\u25b6')),
      el('label', {}, 'Picture ', goTo),
      el('span', { class: 'soft' }, 'Wheel or drag zooms, shift and drag moves, a click shows a picture.'));
  }

  drawKey() {
    const parts = [['I', 'I'], ['P', 'P'], ['B', 'B'], ['?', 'not known']].map(([letter, text]) => {
      const canvas = el('canvas', { width: '18', height: '13' });
      const pen = canvas.getContext('2d');
      pen.fillStyle = letter === 'I' ? colourOf(SLICE_COLOURS[letter]) : hatch(pen, colourOf(SLICE_COLOURS[letter]), letter);
      pen.fillRect(0, 0, 18, 13);
      return el('span', {}, canvas, text);
    });
    this.key.replaceChildren(...parts, el('span', {}, '\u25bc IDR, CRA, BLA, RP (recovery point), GOP: decoding can begin'));
  }

  reorder(name) {
    this.setOrder(name);
    this.refresh();
    if (this.chosen >= 0) this.choose(this.chosen, false, true);
  }

  // Shows the pictures from `from` to `to`, as near as there are some.
  show(from, to) {
    const least = Math.min(4, this.count);
    const length = Math.min(this.count, Math.max(least, to - from));
    const begin = Math.min(Math.max(-0.5, (from + to - length) / 2), this.count - 0.5 - length);
    this.window = [begin, begin + length];
    this.refresh();
  }

  refresh() {
    this.busy = true;
    for (const chart of this.charts) chart.update(...this.window);
    this.busy = false;
    this.tell();
    this.table.refresh();
  }

  // A chart was zoomed or moved by itself: the others go with it.
  follow([from, to]) {
    if (this.busy || (Math.abs(from - this.window[0]) < 1e-6 && Math.abs(to - this.window[1]) < 1e-6)) return;
    this.wanted = [from, to];
    if (this.waiting) return;
    this.waiting = true;
    requestAnimationFrame(() => { this.waiting = false; this.show(...this.wanted); });
  }

  zoom(factor, around) {
    const [from, to] = this.window;
    const inside = this.chosen >= from && this.chosen <= to;
    const at = around ?? (inside ? this.chosen : (from + to) / 2);
    this.show(at - (at - from) * factor, at + (to - at) * factor);
  }

  move(share) {
    const [from, to] = this.window;
    const by = (to - from) * share;
    this.show(from + by, to + by);
  }

  showAll() { this.show(-0.5, this.count - 0.5); }

  first() { return Math.max(0, Math.ceil(this.window[0])); }
  last() { return Math.min(this.count - 1, Math.floor(this.window[1])); }

  tell() {
    const text = `Pictures ${grouped(this.first())} to ${grouped(this.last())} of ${grouped(this.count)}, in ${this.orderName} order`;
    this.said.textContent = text;
    this.root.dataset.from = String(this.first());
    this.root.dataset.to = String(this.last());
  }

  // `asked`: from elsewhere, so the picture must come into sight.
  choose(n, shown, asked) {
    if (!(n >= 0 && n < this.count)) return;
    this.chosen = n;
    const [from, to] = this.window;
    if (n < from || n > to || (asked && to - from > 400)) this.show(n - 40, n + 40);
    else { this.busy = true; this.charts.forEach((chart) => chart.redraw()); this.busy = false; }
    this.panel.hidden = false;
    showPicture(this, this.panel, n);
    if (shown) this.said.textContent = `Picture ${n}: ${this.pointText(n).replace(/\n/g, ', ')}`;
  }

  choosePacket(packet) {
    this.choose(this.order.indexOf(packet), true, true);
    this.plots.scrollIntoView({ block: 'start' });
    this.plots.focus({ preventScroll: true });
  }

  pressed(event) {
    const steps = { ArrowLeft: -1, ArrowRight: 1 };
    const keys = {
      '+': () => this.zoom(0.5), '=': () => this.zoom(0.5), '-': () => this.zoom(2), 0: () => this.showAll(),
      PageUp: () => this.move(-0.8), PageDown: () => this.move(0.8), Home: () => this.choose(0, true), End: () => this.choose(this.count - 1, true),
    };
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    if (steps[event.key]) {
      const from = this.chosen >= 0 ? this.chosen + steps[event.key] : this.first();
      this.choose(Math.min(this.count - 1, Math.max(0, from)), true);
    } else if (keys[event.key]) keys[event.key]();
    else return;
    event.preventDefault();
  }

  pointText(n) {
    const { facts } = this;
    const packet = this.order[n];
    const pts = facts.ptsOf(packet);
    const lines = [`${facts.typeText(packet)}, ${grouped(facts.size[packet])} bytes`, `shown at ${secondsText(pts)}, decoded at ${secondsText(facts.dtsOf(packet))}`];
    if (facts.clock[packet]) lines.push(`timecode ${facts.clockText(packet)}`);
    return lines.join('\n');
  }

  point(event, x) {
    const n = Math.round(x);
    if (!(n >= 0 && n < this.count)) return;
    const box = this.plots.getBoundingClientRect();
    this.tip.textContent = `Picture ${n} (${this.order[n]} as coded)\n${this.pointText(n)}`;
    this.tip.hidden = false;
    const left = event.clientX - box.left;
    const over = left > box.width / 2;
    this.tip.style.left = over ? 'auto' : `${left + 16}px`;
    this.tip.style.right = over ? `${box.width - left + 16}px` : 'auto';
    this.tip.style.top = `${event.clientY - box.top + 14}px`;
  }

  unpoint() { if (this.tip) this.tip.hidden = true; }

  axisText(n) {
    if (!Number.isInteger(n) || n < 0 || n >= this.count) return '';
    const time = this.orderName === 'coding' ? this.facts.dtsOf(this.order[n]) : this.facts.ptsOf(this.order[n]);
    return time === null ? String(n) : `${n} \u00b7 ${secondsText(time, 2).replace(/^0:/, '')}`;
  }
}

// The pictures of the window as a table, for those who read and do not look.
class PictureTable {
  constructor(line) {
    this.line = line;
    this.holder = el('div', {});
    this.details = el('details', { class: 'table', ontoggle: () => this.refresh() }, el('summary', {}, 'The pictures in sight as a table'), this.holder);
  }

  refresh() {
    if (!this.details.open) return;
    const { line } = this;
    const { facts } = line;
    const most = 300;
    const rows = [];
    const end = Math.min(line.last(), line.first() + most - 1);
    for (let n = line.first(); n <= end; ++n) {
      const packet = line.order[n];
      const triplets = facts.tripletsOf(packet);
      rows.push([el('button', { type: 'button', class: 'link', onclick: () => line.choose(n, true) }, String(n)), String(packet),
        facts.slicesText(packet), ENTRIES[facts.entry[packet]], String(facts.size[packet]),
        facts.ptsOf(packet) === null ? '-' : String(facts.pts[packet]), facts.dtsOf(packet) === null ? '-' : String(facts.dts[packet]),
        facts.clockText(packet), facts.structureText(packet), triplets === null ? '' : String(triplets)]);
    }
    const note = end < line.last() ? `The first ${most} of them; zoom in for others` : '';
    this.holder.replaceChildren(tableOf(note, [['Picture', true], ['Coded', true], ['Type'], ['Entry'], ['Bytes', true], ['PTS', true], ['DTS', true], ['Timecode'], ['Coded as'], ['Triplets', true]], rows));
  }
}
