// Puts the page together.

function showPage() {
  const data = JSON.parse(document.getElementById('data').textContent);
  document.title = `${data.file}: media report`;
  document.getElementById('title').textContent = data.file;
  document.getElementById('subtitle').textContent = data.streams.map((stream) =>
    `stream ${stream.index}: ${stream.codec}, ${stream.width} \u00d7 ${stream.height}, ${grouped(stream.packets)} packets`).join('; ');
  const lines = new Map();
  const go = (stream, packet) => lines.get(stream)?.choosePacket(packet);
  const goToTime = (stream, seconds) => {
    const line = lines.get(stream);
    if (!line) return;
    const { facts } = line;
    const times = facts.timesIn(facts.presentation, 'presentation');
    let n = 0;
    while (n + 1 < times.length && times[n] - times[0] < seconds - 1e-3) ++n;
    line.choosePacket(facts.presentation[n]);
  };
  showFindings(data, go);
  showFile(data);
  const pictures = document.getElementById('pictures');
  if (!data.streams.length) pictures.append(el('p', { class: 'soft' }, 'The file has no coded video whose pictures are told apart here.'));
  for (const stream of data.streams) {
    const units = document.getElementById(`units-${stream.index}`).textContent;
    const facts = new StreamFacts(stream, units, data.block);
    if (facts.count === 0) {
      pictures.append(el('p', { class: 'soft' }, `Stream ${stream.index} brings no packet.`));
      continue;
    }
    lines.set(stream.index, new Timeline(pictures, facts, data.findings.filter((finding) => finding.stream === stream.index)));
  }
  showSets(data);
  showCaptions(data, goToTime);
  showOthers(data);
  // Paper has no summary to click on.
  addEventListener('beforeprint', () => document.querySelectorAll('details.paper').forEach((part) => { part.open = true; }));
  document.documentElement.dataset.ready = String(Math.round(performance.now()));
}

showPage();
