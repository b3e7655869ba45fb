// Every misbehaviour of the camera with its numbers, and the troubles that are not the camera's. Data only.
export const kinds = [
  {kind: 'error_code', title: 'Error code', fields: {value: -1}}, {kind: 'http_status', title: 'HTTP status', fields: {status: 500}},
  {kind: 'redirect', title: 'Redirect', fields: {location: '/elsewhere', status: 302}}, {kind: 'http10', title: 'HTTP/1.0', fields: {}},
  {kind: 'delay', title: 'Late reply', fields: {ms: 3000}}, {kind: 'close', title: 'Closes without a word', fields: {after: false}},
  {kind: 'reset', title: 'Resets', fields: {after: false}}, {kind: 'truncate', title: 'Cut reply', fields: {bytes: 10}},
  {kind: 'drip', title: 'Drips', fields: {bytes: 1, ms: 10}}, {kind: 'pieces', title: 'In pieces', fields: {pieces: 2, ms: 20, chunked: false}},
  {kind: 'oversize', title: 'Too long', fields: {bytes: 1048576}}, {kind: 'garbage', title: 'Garbage', fields: {bytes: 256, raw: false}},
  {kind: 'body', title: 'Another body', fields: {text: '<x/>', raw: false}}, {kind: 'hang', title: 'Hangs', fields: {}},
];

export const endpoints = ['*', 'CameraStatus', 'CameraLogin', 'CameraSetting', 'CameraSetup', 'RemoteControl', 'CameraInfo', 'VideoList', 'MobileAudio', 'photo'];

const status = (state, key, value) => state.camera?.status?.[key] === value;
const tool = (state, name, order) => state.device?.tools?.[name]?.[order] !== undefined;

// A trouble that is on or off: how it is ordered and healed (target, method, path, body), and how it is seen in force.
export const switches = [
  {id: 'vanish', title: 'Camera vanishes', about: 'every packet is lost, silently', on: ['camera', 'POST', '/vanish'], off: ['camera', 'POST', '/appear'], holds: (s) => s.camera?.network === 'vanished'},
  {id: 'refuse', title: 'Camera refuses', about: 'its port is closed', on: ['camera', 'POST', '/refuse'], off: ['camera', 'POST', '/accept'], holds: (s) => s.camera?.network === 'refusing'},
  {id: 'card-full', title: 'Card is full', about: 'a filler takes all room', on: ['api', 'PUT', '/card', {full: true}], off: ['api', 'PUT', '/card', {full: false}], holds: (s) => Boolean(s.device?.card?.filled)},
  {id: 'card-out', title: 'Card is out', about: 'the camera says SD 0', on: ['camera', 'PATCH', '/status', {SD: '0'}], off: ['camera', 'PATCH', '/status', {SD: '1'}], holds: (s) => status(s, 'SD', '0')},
  {id: 'ntp', title: 'No time server', about: 'ntpdate fails', on: ['api', 'PUT', '/tools/ntpdate', {exit: 1}], off: ['api', 'PUT', '/tools/ntpdate', {exit: null}], holds: (s) => tool(s, 'ntpdate', 'exit')},
  {id: 'ping', title: 'No gateway', about: 'ping fails', on: ['api', 'PUT', '/tools/ping', {exit: 1}], off: ['api', 'PUT', '/tools/ping', {exit: null}], holds: (s) => tool(s, 'ping', 'exit')},
  {id: 'slow-ping', title: 'Slow network', about: 'ping takes 4 s', on: ['api', 'PUT', '/tools/ping', {delay: 4}], off: ['api', 'PUT', '/tools/ping', {delay: null}], holds: (s) => tool(s, 'ping', 'delay')},
  {id: 'ifconfig', title: 'No interface', about: 'ifconfig fails', on: ['api', 'PUT', '/tools/ifconfig', {exit: 1}], off: ['api', 'PUT', '/tools/ifconfig', {exit: null}], holds: (s) => tool(s, 'ifconfig', 'exit')},
  {id: 'netstat', title: 'No route', about: 'netstat says nothing', on: ['api', 'PUT', '/tools/netstat', {stdout: ''}], off: ['api', 'PUT', '/tools/netstat', {stdout: null}], holds: (s) => tool(s, 'netstat', 'stdout')},
  {id: 'reboot', title: 'Reboot fails', about: 'qmx_reboot ends with 1', on: ['api', 'PUT', '/tools/qmx_reboot', {exit: 1}], off: ['api', 'PUT', '/tools/qmx_reboot', {exit: null}], holds: (s) => tool(s, 'qmx_reboot', 'exit')},
  {id: 'stall', title: 'Frames stop', about: 'with a viewer: the watchdog reboots', on: ['sdk', 'PUT', '/capture', {stalled: true}], off: ['sdk', 'PUT', '/capture', {stalled: false}], holds: (s) => Boolean(s.sdk?.capture?.stalled)},
  {id: 'sdk-refuses', title: 'SDK refuses alarms', about: 'SendAlarmData gives -1', on: ['sdk', 'PUT', '/table', {alarm_result: -1}], off: ['sdk', 'PUT', '/table', {alarm_result: 0}], holds: (s) => (s.sdk?.alarm_result ?? 0) !== 0},
];

// Troubles that happen once and leave nothing to heal.
export const once = [
  {id: 'expire', title: 'Sessions end', about: 'all keys are unknown', does: ['camera', 'POST', '/session/expire']},
  {id: 'restart', title: 'Camera restarts', about: 'other keys, connections dropped', does: ['camera', 'POST', '/restart']},
  {id: 'clock-on', title: 'Clock jumps ahead', about: 'by an hour', does: ['api', 'POST', '/clock', {step: 3600}]},
  {id: 'clock-back', title: 'Clock falls back', about: 'by an hour', does: ['api', 'POST', '/clock', {step: -3600}]},
];
