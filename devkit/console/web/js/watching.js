// What both ways to the live picture share: they ask the desk, and ask again, until nobody wants to see any more.
const again = 1000;  // milliseconds until the next try

// A way has play(), which ends or throws when the stream does; onState('off' | 'waiting' | 'live', why).
export class Watching {
  constructor(picture, onState) {
    this.picture = picture;
    this.onState = onState;
  }

  start() {
    this.wanted = true;
    this.began = performance.now();
    this.firstPicture = null;  // then: milliseconds that it took
    this.run();
  }

  stop() {
    this.wanted = false;
    this.abort?.abort();
    this.onState('off');
  }

  async run() {
    while (this.wanted) {
      this.onState('waiting');
      try {
        await this.play();
      } catch (problem) {
        if (this.wanted) this.onState('waiting', problem.message);
      }
      if (this.wanted) await new Promise((resolve) => { setTimeout(resolve, again); });
    }
  }

  async ask(path) {
    this.abort = new AbortController();
    const reply = await fetch(path, {signal: this.abort.signal, cache: 'no-store'});
    if (reply.status !== 200) throw new Error('no picture comes');
    return reply;
  }
}
