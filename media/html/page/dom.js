// Makes elements. Text goes in as text: nothing that a file says is ever taken for markup.

// el('p', { class: 'note' }, 'text', child ...); an attribute that begins with "on" is a listener.
function el(name, attributes, ...children) {
  const element = document.createElement(name);
  for (const [key, value] of Object.entries(attributes || {})) {
    if (key.startsWith('on')) element.addEventListener(key.slice(2), value);
    else if (value !== false && value !== null && value !== undefined) element.setAttribute(key, value === true ? '' : value);
  }
  element.append(...children.filter((child) => child !== null && child !== undefined));
  return element;
}

// A table with headings; `columns` are [heading, right, class]. Cells are texts or elements.
function tableOf(caption, columns, rows) {
  const cellClass = (column) => [column[1] ? 'number' : '', column[2] || ''].join(' ').trim() || false;
  const head = el('tr', {}, ...columns.map((column) => el('th', { scope: 'col', class: column[1] ? 'number' : false }, column[0])));
  const body = rows.map((row) => el('tr', {}, ...row.map((cell, i) => el('td', { class: cellClass(columns[i]) }, cell))));
  return el('div', { class: 'scroll' }, el('table', {}, caption ? el('caption', { class: 'soft' }, caption) : null,
    el('thead', {}, head), el('tbody', {}, ...body)));
}

function factsOf(pairs) {
  const list = el('dl', { class: 'facts' });
  for (const [name, value] of pairs) list.append(el('dt', {}, name), el('dd', {}, value));
  return list;
}

function grouped(number) {
  return String(number).replace(/\B(?=(\d{3})+(?!\d))/g, '\u202f');
}

function secondsText(seconds, digits = 3) {
  if (seconds === null) return '-';
  const sign = seconds < 0 ? '-' : '';
  const all = Math.abs(seconds);
  const minutes = Math.floor(all / 60);
  const rest = (all - minutes * 60).toFixed(digits).padStart(digits + 3, '0');
  return `${sign}${Math.floor(minutes / 60)}:${String(minutes % 60).padStart(2, '0')}:${rest}`;
}
