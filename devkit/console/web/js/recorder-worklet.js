// Takes the microphone's blocks down to 12 kHz, mono, 16 bit, and hands them over with their peak. Each new sample is the
// mean of those that it stands for.
const target = 12000;

class Recorder extends AudioWorkletProcessor {
  constructor() {
    super();
    this.step = sampleRate / target;
    this.left = [];
  }

  process([input]) {
    const channels = input.length;
    if (!channels) return true;
    for (let i = 0; i < input[0].length; i++) {
      let sum = 0;
      for (let channel = 0; channel < channels; channel++) sum += input[channel][i];
      this.left.push(sum / channels);
    }
    const count = Math.floor(this.left.length / this.step);
    const made = new Int16Array(count);
    let peak = 0;
    for (let n = 0; n < count; n++) {
      const from = Math.floor(n * this.step), end = Math.max(Math.floor((n + 1) * this.step), from + 1);
      let sum = 0;
      for (let i = from; i < end; i++) sum += this.left[i];
      const value = sum / (end - from);
      peak = Math.max(peak, Math.abs(value));
      made[n] = Math.max(-32768, Math.min(32767, Math.round(value * 32767)));
    }
    this.left.splice(0, Math.floor(count * this.step));
    this.port.postMessage({samples: made, peak}, [made.buffer]);
    return true;
  }
}

registerProcessor('recorder', Recorder);
