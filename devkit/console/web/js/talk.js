// Talk: hold to talk, a file or a typed sentence; then the clip as the camera got it, beside what was said.
import {ask, sdk, until} from './api.js';
import {announce, card, h, s} from './dom.js';
import {fitted, fromWav, measures, toBase64} from './wav.js';
import {state} from './stream.js';

const clipSeconds = 40;  // until a clip that was handed over is with the camera
let context, recorder, microphone, spoken = [], holding = false, meter, status, said, heard;

function waveform(samples) {
  const columns = 300, step = Math.max(1, Math.floor(samples.length / columns));
  let d = '';
  for (let x = 0; x < columns && x * step < samples.length; x++) {
    let peak = 0;
    for (let i = x * step; i < (x + 1) * step && i < samples.length; i++) peak = Math.max(peak, Math.abs(samples[i]));
    const y = (peak / 32768) * 30;
    d += `M${x} ${32 - y}V${32 + y}`;
  }
  return s('svg', {viewBox: '0 0 300 64', preserveAspectRatio: 'none', class: 'wave', role: 'img', 'aria-label': 'Waveform'}, s('path', {d, stroke: 'currentColor', 'stroke-width': 1, fill: 'none'}));
}

function describe(place, title, samples, audio) {
  const found = measures(samples);
  place.replaceChildren(h('h3', {}, title), waveform(samples),
    h('p', {class: 'hint', 'data-peak': found.peak, 'data-rms': Math.round(found.rms)}, `${found.seconds.toFixed(1)} s, peak ${found.peakText}, RMS ${found.rmsText}`), ...(audio ? [audio] : []));
}

// Hands samples over and shows the clip that the camera gets; `order` does it.
async function deliver(samples, order) {
  const before = state.camera?.audio_clips ?? 0;
  if (samples) describe(said, 'Said', samples);
  heard.replaceChildren();
  status.textContent = 'On its way …';
  try {
    await order();
    if (!await until((now) => now.camera?.audio_clips > before, clipSeconds)) throw new Error('the camera got no clip');
    const reply = await fetch(`camera/audio/${state.camera.audio_clips}`);
    const clip = await reply.arrayBuffer();
    const audio = h('audio', {controls: true, src: URL.createObjectURL(new Blob([clip], {type: 'audio/wav'})), 'aria-label': 'The clip as the camera got it'});
    describe(heard, 'As the camera got it', fromWav(clip).samples, audio);
    status.textContent = `Clip ${state.camera.audio_clips} is with the camera.`;
    announce(status.textContent);
  } catch (problem) {
    status.textContent = problem.message;
  }
}

const send = (samples) => deliver(samples, () => sdk('POST', '/talk', {pcm_base64: toBase64(samples), pace: 'real'}));

async function openMicrophone() {
  if (recorder) return;
  microphone = await navigator.mediaDevices.getUserMedia({audio: {channelCount: 1, echoCancellation: false, noiseSuppression: false, autoGainControl: false}});
  context = new AudioContext();
  await context.audioWorklet.addModule(new URL('recorder-worklet.js', import.meta.url));
  recorder = new AudioWorkletNode(context, 'recorder', {numberOfOutputs: 0});
  recorder.port.onmessage = ({data}) => {
    meter.value = data.peak;
    if (holding) spoken.push(data.samples);
  };
  context.createMediaStreamSource(microphone).connect(recorder);
}

async function begin(button) {
  if (holding) return;
  holding = true;
  spoken = [];
  button.classList.add('speaking');
  button.textContent = 'Speak … let go to send';
  try {
    await openMicrophone();
    await context.resume();
    if (holding) status.textContent = 'Listening …';
  } catch (problem) {
    finish(button, `No microphone: ${problem.message}`);
  }
}

function finish(button, why) {
  if (!holding) return;
  holding = false;
  button.classList.remove('speaking');
  button.textContent = 'Hold to talk';
  meter.value = 0;
  const samples = Int16Array.from(spoken.flatMap((piece) => [...piece]));
  if (samples.length < 1200) status.textContent = why ?? 'That was too short: hold the button while you speak.';
  else send(samples);
}

function holdButton() {
  const button = h('button', {type: 'button', id: 'hold', class: 'primary', onpointerdown: (event) => {
    button.setPointerCapture(event.pointerId);
    begin(button);
  }, onpointerup: () => finish(button), onpointercancel: () => finish(button), onblur: () => finish(button)}, 'Hold to talk');
  const key = (event) => [' ', 'Enter'].includes(event.key);
  button.addEventListener('keydown', (event) => {
    if (!key(event)) return;
    event.preventDefault();
    if (!event.repeat) begin(button);
  });
  button.addEventListener('keyup', (event) => { if (key(event)) finish(button); });
  return button;
}

async function sendFile(event) {
  const [file] = event.target.files;
  if (!file) return;
  try {
    await send(fitted(fromWav(await file.arrayBuffer())));
  } catch (problem) {
    status.textContent = problem.message;
  }
}

export function makeTalk(panel) {
  meter = h('meter', {min: 0, max: 1, low: 0.02, high: 0.9, optimum: 0.4, 'aria-label': 'Level of the microphone'});
  status = h('p', {class: 'hint', role: 'status', id: 'talk-status'}, 'The camera plays what you say.');
  said = h('div');
  heard = h('div', {id: 'heard'}, h('p', {class: 'hint'}, 'Nothing was said yet.'));
  const sentence = h('input', {type: 'text', 'aria-label': 'A sentence to speak', placeholder: 'Good night', id: 'sentence'});
  const say = (event) => {
    event.preventDefault();
    said.replaceChildren();
    deliver(null, () => ask('POST', 'api/say', {text: sentence.value || sentence.placeholder}));
  };
  panel.append(card('Talk', holdButton(), meter, status),
    card('Or send', h('label', {}, 'A WAV file of 16 bits', h('br'), h('input', {type: 'file', accept: '.wav,audio/wav', id: 'wav', onchange: sendFile})),
      h('form', {class: 'row', onsubmit: say}, sentence, h('button', {type: 'submit', id: 'say'}, 'Speak it'))),
    Object.assign(card('The clip', said, heard), {className: 'card wide'}));
}
