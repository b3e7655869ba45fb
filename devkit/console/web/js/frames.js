// Frames as the desk sends them (README, "The live picture"), and what their first bytes tell.
export const kinds = {sound: 0, picture: 1, key: 2};
const headerBytes = 16;

// Puts frames together again from pieces of any size.
export class FrameReader {
  constructor() {
    this.rest = new Uint8Array(0);
  }

  // The frames that are whole with this piece: {kind, time (microseconds), data}.
  take(piece) {
    const all = new Uint8Array(this.rest.length + piece.length);
    all.set(this.rest);
    all.set(piece, this.rest.length);
    const view = new DataView(all.buffer), frames = [];
    let at = 0;
    while (all.length - at >= headerBytes) {
      const length = view.getUint32(at, true);
      if (all.length - at - headerBytes < length) break;
      frames.push({kind: view.getUint32(at + 4, true), time: Number(view.getBigInt64(at + 8, true)), data: all.slice(at + headerBytes, at + headerBytes + length)});
      at += headerBytes + length;
    }
    this.rest = all.slice(at);
    return frames;
  }
}

const hex = (byte) => byte.toString(16).padStart(2, '0');

// "avc1.64000d" of a key frame with its parameter sets.
export function codecOf(data) {
  for (let at = 0; at + 6 < data.length; at++) {
    if (data[at] === 0 && data[at + 1] === 0 && data[at + 2] === 1 && (data[at + 3] & 31) === 7)
      return `avc1.${hex(data[at + 4])}${hex(data[at + 5])}${hex(data[at + 6])}`;
  }
  throw new Error('a key frame without its parameter set');
}

const rates = [96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350];

// {sampleRate, numberOfChannels} of a frame with an ADTS header; null for anything else.
export function soundOf(data) {
  if (data.length < 8 || data[0] !== 0xff || (data[1] & 0xf0) !== 0xf0) return null;
  return {sampleRate: rates[(data[2] >> 2) & 15] ?? 48000, numberOfChannels: ((data[2] & 1) << 2) | (data[3] >> 6)};
}
