// Takes apart what the page's data is packed in: base64, numbers in groups of seven bits, columns of differences.

function bytesOfBase64(text) {
  const raw = atob(text);
  const bytes = new Uint8Array(raw.length);
  for (let i = 0; i < raw.length; ++i) bytes[i] = raw.charCodeAt(i);
  return bytes;
}

class NumberReader {
  constructor(bytes) {
    this.bytes = bytes;
    this.at = 0;
  }

  // A number of any size: the lowest seven bits first.
  next() {
    let number = 0;
    for (let scale = 1;; scale *= 128) {
      const byte = this.bytes[this.at++];
      number += (byte & 127) * scale;
      if (!(byte > 127)) return number;
    }
  }

  // A number with its sign folded in: 0, -1, 1, -2, 2 ...
  nextSigned() {
    const folded = this.next();
    return folded % 2 === 0 ? folded / 2 : -(folded + 1) / 2;
  }

  take(count) {
    this.at += count;
    return this.bytes.subarray(this.at - count, this.at);
  }
}

// A column of `count` numbers, as an array of the type that is asked for.
function columnOf(text, count, Type) {
  const reader = new NumberReader(bytesOfBase64(text));
  const numbers = new Type(count);
  let last = 0;
  for (let i = 0; i < count; ++i) {
    last += reader.nextSigned();
    numbers[i] = last;
  }
  return numbers;
}

// Values that hold from one packet on until the next, spread over all packets.
function spreadRuns(runs, count) {
  const from = columnOf(runs.from, runs.count, Float64Array);
  const value = columnOf(runs.value, runs.count, Int32Array);
  const spread = new Int32Array(count).fill(-1);
  for (let i = 0; i < runs.count; ++i)
    spread.fill(value[i], from[i], i + 1 < runs.count ? from[i + 1] : count);
  return spread;
}

async function inflate(bytes) {
  const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream('deflate'));
  return new Uint8Array(await new Response(stream).arrayBuffer());
}

// The units of one picture, out of a block of pictures.
class UnitBlocks {
  constructor(text, perBlock) {
    this.text = text;
    this.perBlock = perBlock;
    this.packed = null;
    this.open = { number: -1, pictures: [] };
  }

  async of(packet) {
    const number = Math.floor(packet / this.perBlock);
    if (this.open.number !== number) {
      this.packed = this.packed || this.text.split('\n');
      this.open = { number, pictures: UnitBlocks.read(await inflate(bytesOfBase64(this.packed[number]))) };
    }
    return this.open.pictures[packet % this.perBlock] || [];
  }

  static read(bytes) {
    const reader = new NumberReader(bytes);
    const decoder = new TextDecoder();
    const texts = [''];
    for (let left = reader.next(); left > 0; --left) texts.push(decoder.decode(reader.take(reader.next())));
    const pictures = [];
    while (reader.at < bytes.length) {
      const units = [];
      let end = 0;
      for (let left = reader.next(); left > 0; --left) {
        const type = reader.next() - 1;
        const offset = end + reader.nextSigned();
        const size = reader.next();
        const first = reader.take(reader.next());
        units.push({ type, offset, size, first, text: texts[reader.next()] });
        end = offset + size;
      }
      pictures.push(units);
    }
    return pictures;
  }
}
