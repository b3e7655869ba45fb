// Live: the picture with its sound, what the stream is like, and what can be raised before the camera.
import {camera} from './api.js';
import {alarmCards} from './alarms.js';
import {CodecPlayer, lacking} from './codecs.js';
import {announce, card, h, lazily} from './dom.js';
import {Player, latency} from './player.js';
import {plot, rate} from './plot.js';
import {on, state} from './stream.js';

const remembered = 'desk.watching', rememberedLowest = 'desk.lowest';

// Two ways to the picture, one of which plays: a film that the browser buffers, or frame by frame.
function makePicture() {
  const video = h('video', {muted: true, playsInline: true, 'aria-label': 'Live picture'});
  const canvas = h('canvas', {role: 'img', hidden: true, 'aria-label': 'Live picture, frame by frame'});
  const hint = h('p', {}, 'Nobody watches. Press Watch: the SDK asks the agent for pictures, as when somebody opens the app.');
  const badge = h('p', {class: 'latency', hidden: true});
  const tell = (what, why) => {
    hint.hidden = what === 'live';
    hint.textContent = what === 'off' ? 'Nobody watches.' : why ? `Waiting for a picture: ${why}.` : 'Waiting for a picture …';
    badge.hidden = what !== 'live';
    figure.dataset.state = what;
  };
  const film = new Player(video, tell), frames = new CodecPlayer(canvas, tell);
  const figure = h('div', {class: 'picture', 'data-state': 'off'}, video, canvas, hint, badge);
  const picture = {figure, player: film, use(lowest) {
    const before = picture.player, wanted = before.wanted;
    if (wanted) before.stop();
    picture.player = lowest ? frames : film;
    video.hidden = lowest;
    canvas.hidden = !lowest;
    if (wanted) picture.player.start();
  }};
  const look = () => {
    const {player} = picture;
    if (player.firstPicture && player.wanted) badge.textContent = `${latency(player.picture)} ms behind`;
  };
  setInterval(() => picture.player.wanted && picture.player.onPicture(look), 500);
  return picture;
}

function watchButton(picture) {
  const turn = (wanted) => {
    wanted ? picture.player.start() : picture.player.stop();
    watch.textContent = wanted ? 'Stop watching' : 'Watch';
    watch.setAttribute('aria-pressed', wanted);
    sessionStorage.setItem(remembered, wanted ? '1' : '');
  };
  const watch = h('button', {type: 'button', class: 'primary', id: 'watch', 'aria-pressed': 'false', onclick: () => turn(!picture.player.wanted)}, 'Watch');
  if (sessionStorage.getItem(remembered)) turn(true);
  return watch;
}

// Lowest latency; where the browser cannot, a sentence, and the film goes on.
function lowestSwitch(picture) {
  const sentence = h('p', {class: 'hint', id: 'lowest-hint', role: 'status'});
  const choose = () => {
    const why = lowest.checked ? lacking() : '';
    sentence.textContent = why && `${why}: the picture goes on through Media Source Extensions.`;
    if (why) announce(sentence.textContent);
    picture.use(lowest.checked && !why);
    localStorage.setItem(rememberedLowest, lowest.checked ? '1' : '');
  };
  const lowest = h('input', {type: 'checkbox', id: 'lowest', checked: Boolean(localStorage.getItem(rememberedLowest)), onchange: choose});
  if (lowest.checked) choose();
  return [h('label', {class: 'row', title: 'WebCodecs: each frame is shown as it comes, nothing is buffered'}, lowest, 'lowest latency'), sentence];
}

function watchRow(picture) {
  let muted = true;
  const [lowest, sentence] = lowestSwitch(picture);
  const sound = h('button', {type: 'button', id: 'sound', 'aria-pressed': 'false', onclick: () => {
    muted = !muted;
    picture.player.setMuted(muted);
    sound.setAttribute('aria-pressed', !muted);
  }}, 'Sound');
  lowest.addEventListener('change', () => picture.player.setMuted(muted));
  const big = h('button', {type: 'button', onclick: () => picture.figure.requestFullscreen?.()}, 'Full screen');
  return [h('div', {class: 'row'}, watchButton(picture), sound, big, lowest), sentence];
}

function raise(name, label) {
  return h('button', {type: 'button', id: `raise-${name}`, onclick: () => camera('POST', '/event', {name, polls: 1, value: '1'})}, label);
}

// Frames from one key frame to the next.
function keyDistance(samples) {
  const points = [];
  for (let i = 10; i < samples.length; i++) {
    const keys = samples[i].key_frames - samples[i - 10].key_frames, frames = samples[i].video - samples[i - 10].video;
    if (keys > 0 && frames > 0) points.push([samples[i].t, frames / keys]);
  }
  return points;
}

// Seconds since the newest picture, while the watchdog is on guard.
function withoutPicture(samples) {
  let newest = null;
  return samples.map((sample, i) => {
    if (!sample.watched || newest === null || sample.video !== samples[i - 1].video) newest = sample.t;
    return [sample.t, sample.watched ? (sample.t - newest) / 1000 : NaN];
  });
}

function makeSparks() {
  const plots = {
    fps: plot('Pictures', {unit: ' /s', digits: 1, floor: 0}), keys: plot('Key frame every', {unit: '', floor: 0}),
    bits: plot('Video', {unit: ' kbit/s', floor: 0}), sound: plot('Sound', {unit: ' kbit/s', floor: 0}),
    dog: plot('Without a picture', {unit: ' s', floor: 0}),
  };
  const dog = h('p', {class: 'hint', id: 'watchdog'});
  on('samples', lazily(() => {
    plots.fps.draw(rate(state.samples, 'video'), state.marks);
    plots.keys.draw(keyDistance(state.samples), state.marks);
    plots.bits.draw(rate(state.samples, 'video_bytes', 0.008), state.marks);
    plots.sound.draw(rate(state.samples, 'audio_bytes', 0.008), state.marks);
    plots.dog.draw(withoutPicture(state.samples), state.marks);
  }));
  const tellDog = () => {
    const watched = state.sdk?.request_vedio ? 'on guard: without a frame for one period the agent reboots the device' : 'at rest: nobody watches';
    dog.textContent = state.sdk ? `Watchdog ${watched}. Profile ${state.sdk.capture?.profile ?? '–'}, ${state.sdk.capture?.stalled ? 'stalled' : state.sdk.capture?.source ?? '–'}; viewers here: ${state.viewers ?? 0}.` : 'The agent is away.';
  };
  on('sdk', lazily(tellDog));
  on('viewers', lazily(tellDog));
  return [h('div', {class: 'sparks pair'}, Object.values(plots).map((each) => each.element)), dog];
}

export function makeLive(panel) {
  const parts = makePicture();
  const picture = card('Picture', parts.figure, ...watchRow(parts), ...makeSparks());
  const before = card('Before the camera', h('div', {class: 'row'}, raise('MotionEvent', 'Somebody walks by'),
    raise('AudioEvent', 'A noise'), raise('TemperatureEvent', 'A temperature event')),
  h('p', {class: 'hint'}, 'Each lasts for one poll. The agent asks every few seconds; the alarm and its lines follow.'));
  panel.append(picture, h('div', {class: 'stack'}, before, ...alarmCards()));
  panel.classList.add('picture-first');
  Object.defineProperty(window, 'deskPlayer', {get: () => parts.player});  // for whoever measures
}
