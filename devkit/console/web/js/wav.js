// Samples of 16 bits: to and from WAV, base64, and what they are like.
export const rate = 12000;

// {rate, channels, samples: Int16Array} of a WAV file of 16 bits; throws a sentence for anything else.
export function fromWav(buffer) {
  const view = new DataView(buffer);
  const tag = (at) => String.fromCharCode(...new Uint8Array(buffer, at, 4));
  if (buffer.byteLength < 44 || tag(0) !== 'RIFF' || tag(8) !== 'WAVE') throw new Error('this is no WAV file');
  let format = null;
  for (let at = 12; at + 8 <= buffer.byteLength; at += 8 + view.getUint32(at + 4, true)) {
    if (tag(at) === 'fmt ') format = {channels: view.getUint16(at + 10, true), rate: view.getUint32(at + 12, true), bits: view.getUint16(at + 22, true)};
    if (tag(at) !== 'data') continue;
    if (format?.bits !== 16) throw new Error('this WAV file has not 16 bits to a sample');
    const size = Math.min(view.getUint32(at + 4, true), buffer.byteLength - at - 8) & ~1;
    return {...format, samples: new Int16Array(buffer.slice(at + 8, at + 8 + size))};
  }
  throw new Error('this WAV file holds no samples');
}

// As the talk-back takes it: one channel, 12 kHz.
export function fitted({samples, channels, rate: from}) {
  const step = from / rate, count = Math.floor(samples.length / channels / step);
  const made = new Int16Array(count);
  for (let n = 0; n < count; n++) {
    const first = Math.floor(n * step), end = Math.max(Math.floor((n + 1) * step), first + 1);
    let sum = 0;
    for (let i = first; i < end; i++) for (let channel = 0; channel < channels; channel++) sum += samples[i * channels + channel];
    made[n] = Math.round(sum / (end - first) / channels);
  }
  return made;
}

export function toBase64(samples) {
  const data = new Uint8Array(samples.buffer, samples.byteOffset, samples.byteLength);
  let text = '';
  for (let at = 0; at < data.length; at += 8192) text += String.fromCharCode(...data.subarray(at, at + 8192));
  return btoa(text);
}

export function measures(samples) {
  let peak = 0, sum = 0;
  for (const sample of samples) {
    peak = Math.max(peak, Math.abs(sample));
    sum += sample * sample;
  }
  const decibel = (value) => (value ? `${(20 * Math.log10(value / 32768)).toFixed(1)} dB` : 'silence');
  return {seconds: samples.length / rate, peak, rms: Math.sqrt(sum / (samples.length || 1)), peakText: decibel(peak), rmsText: decibel(Math.sqrt(sum / (samples.length || 1)))};
}
