// The live picture: fragments of MP4 from the desk into Media Source Extensions, kept close to the live edge.
import {Watching} from './watching.js';

const kept = 20;         // seconds behind that stay in the buffer
const wanted = 0.12, late = 0.3, lost = 0.6;  // seconds behind the newest picture: aim, catch up, jump
const settling = 1000, pause = 150;  // milliseconds in which a film that begins jumps earlier, and between its jumps

export class Player extends Watching {
  constructor(video, onState) {
    super(video, onState);
    this.video = video;
    this.jumps = 0;
    this.jumped = 0;  // when it did so last
  }

  start() {
    super.start();
    this.timer = setInterval(() => this.stayLive(), 100);
  }

  stop() {
    clearInterval(this.timer);
    super.stop();
    this.video.removeAttribute('src');
    this.video.load();
  }

  setMuted(muted) {
    this.video.muted = muted;
  }

  // Calls f once, with the next picture.
  onPicture(f) {
    this.video.requestVideoFrameCallback(f);
  }

  async play() {
    const reply = await this.ask('live');
    this.codecs = reply.headers.get('X-Codecs');
    const source = new MediaSource();
    const address = URL.createObjectURL(source);
    this.video.src = address;
    await new Promise((resolve) => { source.addEventListener('sourceopen', resolve, {once: true}); });
    URL.revokeObjectURL(address);
    this.buffer = source.addSourceBuffer(`video/mp4; codecs="${this.codecs}"`);
    this.opened = performance.now();
    this.video.requestVideoFrameCallback?.(() => {
      this.firstPicture = performance.now() - this.began;
      this.onState('live');
    });
    this.video.play().catch(() => {});
    try {
      await this.pump(reply.body.getReader());
    } finally {
      this.buffer = null;
    }
  }

  async pump(reader) {
    for (;;) {
      const {done, value} = await reader.read();
      if (done) return;
      await this.append(value);
      this.stayLive();
    }
  }

  append(data) {
    return new Promise((resolve, reject) => {
      this.buffer.addEventListener('updateend', resolve, {once: true});
      this.buffer.addEventListener('error', () => reject(new Error('the picture cannot be decoded')), {once: true});
      const begin = this.buffer.buffered.length ? this.buffer.buffered.start(0) : 0;
      if (this.video.currentTime - begin > 2 * kept) {
        this.buffer.addEventListener('updateend', () => this.buffer.appendBuffer(data), {once: true});
        this.buffer.remove(begin, this.video.currentTime - kept);
        return;
      }
      this.buffer.appendBuffer(data);
    });
  }

  // Jumps when far behind or in a gap, plays a little faster when somewhat behind. A film begins with a key frame that
  // may be older than a second, and all since then at once: at its beginning it jumps as soon as it is somewhat behind.
  stayLive() {
    const {video} = this;
    const ranges = video.buffered;
    if (!ranges.length || !this.buffer) return;
    const end = ranges.end(ranges.length - 1), begin = ranges.start(ranges.length - 1);
    const behind = end - video.currentTime, now = performance.now();
    const begins = now - this.opened < settling && now - this.jumped > pause;
    if (behind > (begins ? late : lost) || video.currentTime < begin) {
      video.currentTime = Math.max(end - wanted, begin);
      this.jumps++;
      this.jumped = now;
    }
    video.playbackRate = behind > late ? 1.15 : behind > 2 * wanted ? 1.05 : 1;
    if (video.paused && this.wanted) video.play().catch(() => {});
  }
}

// The clock in the picture (a row of 16 squares along the lower edge): its lower 16 bits of milliseconds.
const bits = 16, squares = 20;  // squares to the picture's height
const canvas = document.createElement('canvas');
export function timeCode(picture) {
  const height = picture.videoHeight ?? picture.height, size = height / squares;
  canvas.width = Math.ceil(size * bits);
  canvas.height = Math.ceil(size);
  const context = canvas.getContext('2d', {willReadFrequently: true});
  context.drawImage(picture, 0, height - size, size * bits, size, 0, 0, size * bits, size);
  let code = 0;
  for (let bit = 0; bit < bits; bit++) {
    const [red] = context.getImageData(Math.floor((bit + 0.5) * size), Math.floor(size / 2), 1, 1).data;
    code = code * 2 + (red > 127 ? 1 : 0);
  }
  return code;
}

// From the picture's clock until now, milliseconds.
export const latency = (picture) => (Date.now() - timeCode(picture) + 131072) % 65536;
