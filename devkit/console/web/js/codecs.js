// The live picture without a container and without a buffer: each frame goes through WebCodecs as it comes and is shown at once.
import {FrameReader, codecOf, kinds, soundOf} from './frames.js';
import {Watching} from './watching.js';

const mostWaiting = 10;   // pictures that wait for the decoder: beyond, it goes on with the next key frame
const soundAhead = 0.05, mostAhead = 0.2;  // seconds: what is played next, and more than which is left out

// Why this browser cannot; '' where it can.
export function lacking() {
  if (!('VideoDecoder' in window)) return 'This browser has no WebCodecs';
  return window.isSecureContext ? '' : 'WebCodecs are for secure pages only';
}

export class CodecPlayer extends Watching {
  constructor(canvas, onState) {
    super(canvas, onState);
    this.context = canvas.getContext('2d', {alpha: false});
    this.muted = true;
    this.waiting = [];
    this.skipped = 0;
  }

  start() {
    this.sound = new Sound(this.muted);
    super.start();
  }

  stop() {
    super.stop();
    this.close();
    this.sound.close();
  }

  setMuted(muted) {
    this.muted = muted;
    this.sound?.setMuted(muted);
  }

  // Calls f once, with the next picture.
  onPicture(f) {
    this.waiting.push(f);
  }

  async play() {
    const reply = await this.ask('live/frames');
    this.close();
    this.toKey = true;
    this.shows = false;
    const frames = new FrameReader(), reader = reply.body.getReader();
    for (;;) {
      const {done, value} = await reader.read();
      if (done) return;
      for (const frame of frames.take(value)) {
        if (frame.kind === kinds.sound) this.sound.take(frame);
        else this.takePicture(frame);
        if (this.problem) throw this.problem;
      }
    }
  }

  takePicture({kind, time, data}) {
    const key = kind === kinds.key;
    if (this.decoder?.decodeQueueSize > mostWaiting) this.toKey = true;
    if (this.toKey && !key) {
      this.skipped++;
      return;
    }
    this.toKey = false;
    const codec = key ? codecOf(data) : this.codec;
    if (codec !== this.codec || !this.decoder) this.open(codec);
    this.decoder.decode(new EncodedVideoChunk({type: key ? 'key' : 'delta', timestamp: time, data}));
  }

  open(codec) {
    this.close();
    this.codec = codec;
    this.decoder = new VideoDecoder({output: (frame) => this.show(frame), error: (problem) => { this.problem = problem; }});
    this.decoder.configure({codec, optimizeForLatency: true});
  }

  close() {
    if (this.decoder && this.decoder.state !== 'closed') this.decoder.close();
    this.decoder = this.problem = null;
  }

  show(frame) {
    const {picture} = this;
    if (picture.width !== frame.displayWidth || picture.height !== frame.displayHeight) {
      picture.width = frame.displayWidth;
      picture.height = frame.displayHeight;
    }
    this.context.drawImage(frame, 0, 0);
    frame.close();
    this.firstPicture ??= performance.now() - this.began;
    if (!this.shows) this.onState('live');
    this.shows = true;
    for (const f of this.waiting.splice(0)) requestAnimationFrame(f);
  }
}

// AAC through an AudioDecoder, played a moment ahead; what comes too late to be heard in time is left out.
class Sound {
  constructor(muted) {
    this.next = 0;
    this.played = 0;
    if (!('AudioDecoder' in window)) return;
    this.context = new AudioContext({latencyHint: 'interactive'});
    this.volume = this.context.createGain();
    this.volume.connect(this.context.destination);
    this.setMuted(muted);
  }

  setMuted(muted) {
    if (!this.context) return;
    this.volume.gain.value = muted ? 0 : 1;
    this.context.resume().catch(() => {});
  }

  take({time, data}) {
    if (!this.context) return;
    const format = soundOf(data);
    if (!format) return;
    if (!this.decoder || this.decoder.state === 'closed') {
      this.decoder = new AudioDecoder({output: (samples) => this.play(samples), error: () => {}});
      this.decoder.configure({codec: 'mp4a.40.2', ...format});
    }
    this.decoder.decode(new EncodedAudioChunk({type: 'key', timestamp: time, data}));
  }

  play(samples) {
    const now = this.context.currentTime;
    if (this.next < now + 0.005) this.next = now + soundAhead;
    if (this.context.state === 'running' && this.next < now + mostAhead) {
      const buffer = this.context.createBuffer(samples.numberOfChannels, samples.numberOfFrames, samples.sampleRate);
      for (let channel = 0; channel < samples.numberOfChannels; channel++)
        samples.copyTo(buffer.getChannelData(channel), {planeIndex: channel, format: 'f32-planar'});
      const source = this.context.createBufferSource();
      source.buffer = buffer;
      source.connect(this.volume);
      source.start(this.next);
      this.next += buffer.duration;
      this.played++;
    }
    samples.close();
  }

  close() {
    if (this.decoder && this.decoder.state !== 'closed') this.decoder.close();
    this.context?.close();
  }
}
