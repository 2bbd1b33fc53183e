// The text of each caption service with its times. `go(stream, seconds)` shows the picture of a time.
function showCaptions(data, go) {
  const section = document.getElementById('captions');
  const streams = data.streams.filter((stream) => stream.captions);
  if (!streams.length) section.append(el('p', { class: 'soft' }, 'No picture carries captions.'));
  for (const stream of streams) {
    const { services, captioned } = stream.captions;
    section.append(el('h3', {}, `Stream ${stream.index}`),
      el('p', { class: 'soft' }, `Captions on ${grouped(captioned)} of ${grouped(stream.pictures)} pictures: ` +
        (services.length ? services.map((service) => service.name).join(', ') : 'nothing but padding')));
    for (const service of services) {
      section.append(el('h4', {}, service.name));
      if (!service.lines.length) {
        section.append(el('p', { class: 'soft' }, 'Shows no text.'));
        continue;
      }
      const row = ([begin, end, text]) => [el('button', { type: 'button', class: 'link', onclick: () => go(stream.index, begin) }, secondsText(begin)), secondsText(end), text];
      section.append(tableOf('Times from the first picture', [['From', true], ['To', true], ['Text', false, 'lines']], service.lines.map(row)));
    }
  }
}
