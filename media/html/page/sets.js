// Parameter sets: every element by its published name, two sets side by side, and a search.

class SetTable {
  constructor(parent, stream) {
    this.sets = stream.sets.list;
    this.left = stream.sets.left;
    this.root = el('div', { 'data-sets': String(stream.index) });
    const label = `Stream ${stream.index}`;
    const select = (text, none) => {
      const list = el('select', { 'aria-label': `${text} of stream ${stream.index}`, onchange: () => this.refresh() });
      if (none) list.append(el('option', { value: '-1' }, 'nothing'));
      this.sets.forEach((set, place) => list.append(el('option', { value: String(place) }, SetTable.nameOf(set, place))));
      return list;
    };
    this.first = select('Set', false);
    this.second = select('Set to compare with', true);
    this.search = el('input', { type: 'search', placeholder: 'element name', 'aria-label': `Search elements of stream ${stream.index} by name`, oninput: () => this.refresh() });
    this.only = el('input', { type: 'checkbox', onchange: () => this.refresh() });
    this.holder = el('div', {});
    this.count = el('p', { class: 'soft', role: 'status' });
    this.root.append(el('h3', {}, label),
      el('div', { class: 'tools' }, el('label', {}, 'Set ', this.first), el('label', {}, 'beside ', this.second),
        el('label', {}, 'Search ', this.search), el('label', {}, this.only, ' differences alone')), this.count, this.holder);
    parent.append(this.root);
    // A stream's pictures are what is asked first; two of a kind are there to be compared.
    const sps = Math.max(0, this.sets.findIndex((set) => set.name === 'SPS'));
    this.first.value = String(sps);
    const other = this.sets.findIndex((set, place) => place > sps && set.name === this.sets[sps].name);
    if (other >= 0) this.second.value = String(other);
    this.refresh();
  }

  static nameOf(set, place) {
    const where = [set.configured ? 'configuration' : '', set.first >= 0 ? `from picture ${set.first}` : ''].filter(Boolean).join(', ');
    return `${set.name} ${set.id} (no. ${place + 1}: ${where})`;
  }

  // Elements of both, in the order of the first; those that only the second has stand where it has them.
  static rowsOf(a, b) {
    const values = (set) => new Map(set.names.map((name, i) => [name, i]));
    const ofB = b ? values(b) : new Map();
    const ofA = values(a);
    const rows = [];
    let next = 0;
    const lonely = (until) => {
      for (; b && next < until; ++next) if (!ofA.has(b.names[next])) rows.push([b.names[next], null, next]);
    };
    a.names.forEach((name, i) => {
      const other = ofB.has(name) ? ofB.get(name) : null;
      if (other !== null) { lonely(other); next = Math.max(next, other + 1); }
      rows.push([name, i, other]);
    });
    if (b) lonely(b.names.length);
    return rows;
  }

  refresh() {
    const a = this.sets[Number(this.first.value)];
    const b = Number(this.second.value) >= 0 ? this.sets[Number(this.second.value)] : null;
    const wanted = this.search.value.trim().toLowerCase();
    const body = el('tbody', {});
    let differences = 0;
    let shown = 0;
    const text = (set, i) => (i === null ? '\u2014' : set.values[i] + (set.notes[i] ? ` (${set.notes[i]})` : ''));
    for (const [name, i, j] of SetTable.rowsOf(a, b)) {
      const differs = b !== null && (i === null || j === null || a.values[i] !== b.values[j]);
      if (differs) ++differences;
      if ((wanted && !name.toLowerCase().includes(wanted)) || (this.only.checked && !differs)) continue;
      ++shown;
      const cells = [el('th', { scope: 'row', class: 'code' }, name), el('td', { class: 'code' }, text(a, i))];
      if (b) cells.push(el('td', { class: 'sign' }, differs ? '\u2260' : ''), el('td', { class: 'code' }, text(b, j)));
      body.append(el('tr', { class: differs ? 'differs' : false }, ...cells));
    }
    const heads = ['Element', SetTable.nameOf(a, Number(this.first.value))];
    if (b) heads.push('', SetTable.nameOf(b, Number(this.second.value)));
    this.holder.replaceChildren(...this.about(a), ...(b ? this.about(b) : []),
      el('div', { class: 'scroll' }, el('table', { class: 'compare' }, el('thead', {}, el('tr', {}, ...heads.map((head) => el('th', { scope: 'col' }, head)))), body)));
    this.count.textContent = `${shown} elements` + (b ? `, ${differences} differences` : '') +
      (this.left ? `; ${this.left} further sets of the stream are not held here` : '');
  }

  about(set) {
    return set.end ? [el('p', { class: 'note' }, `${set.name} ${set.id}: ${set.end}`)] : [];
  }
}

function showSets(data) {
  const section = document.getElementById('sets');
  const streams = data.streams.filter((stream) => stream.sets && stream.sets.list.length);
  if (!streams.length) section.append(el('p', { class: 'soft' }, 'No stream has parameter sets that are listed here.'));
  for (const stream of streams) new SetTable(section, stream);
}
