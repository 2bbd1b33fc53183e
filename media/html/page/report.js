// The report of `qlnmedia inspect` and the findings of `check`, as text.

// The entries of a section: facts together in a list, the others behind each other.
function reportItems(items, level) {
  const parts = [];
  let facts = [];
  const close = () => {
    if (facts.length) parts.push(factsOf(facts));
    facts = [];
  };
  for (const item of items) {
    if (item.kind === 'fact') {
      facts.push([item.label, item.note ? `${item.text} (${item.note})` : item.text]);
      continue;
    }
    close();
    if (item.kind === 'note') parts.push(el('p', { class: 'note' }, `Note: ${item.text}`));
    else if (item.kind === 'table') parts.push(tableOf(item.label, item.columns, item.rows));
    else parts.push(reportSection(item, level));
  }
  close();
  return parts;
}

function reportSection(item, level) {
  return el('div', {}, item.label ? el(`h${Math.min(level, 5)}`, {}, item.label) : null,
    ...reportItems(item.items, level + 1));
}

function isOtherStream(item) {
  return item.key === 'streams' && item.type && item.type !== 'video';
}

function showFile(data) {
  const section = document.getElementById('file');
  const summary = data.report.filter((item) => item.key === 'summary');
  const rest = data.report.filter((item) => item.key !== 'summary' && !isOtherStream(item));
  section.append(...reportItems(summary.flatMap((item) => item.items), 3),
    el('details', { class: 'paper' }, el('summary', {}, 'All that container, streams and configuration records say'),
      el('div', { class: 'columns' }, ...reportItems(rest, 3))),
    el('details', { class: 'paper' }, el('summary', {}, 'What was read by whom'), factsOf(data.readers)));
}

function showOthers(data) {
  const section = document.getElementById('other');
  const others = data.report.filter(isOtherStream);
  section.append(...(others.length ? reportItems(others, 3) : [el('p', { class: 'soft' }, 'The file has none.')]));
}

// `go(stream, packet)` shows a picture.
function showFindings(data, go) {
  const section = document.getElementById('findings');
  if (data.findings.length === 0) {
    section.append(el('p', { class: 'good' }, '\u2713 Nothing found: container, configuration records and streams agree.'));
    return;
  }
  const list = el('ol', {});
  for (const finding of data.findings) {
    const linked = finding.picture >= 0;
    const where = linked
      ? el('a', { href: '#pictures', onclick: (event) => { event.preventDefault(); go(finding.stream, finding.picture); } },
        `stream ${finding.stream}, picture ${finding.picture} in coding order`)
      : el('span', {}, `stream ${finding.stream}`);
    const times = finding.count > 1 ? ` (${grouped(finding.count)} times)` : '';
    list.append(el('li', {}, el('span', { class: `severity ${finding.severity}` }, finding.severity), el('span', {}, finding.what),
      el('span', {}, where, `: ${finding.text}${times}`)));
  }
  section.append(list);
}
