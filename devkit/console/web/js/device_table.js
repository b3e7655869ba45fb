// What the cloud can ask of the device: parameters with the widget that fits, statuses, remote operations. Data only.
// "unread": the agent takes it and does not give it back.
export const parameters = [
  {name: 'md_armed', title: 'Motion alarm', kind: 'switch'},
  {name: 'md_sensitivity', title: 'Motion sensitivity', kind: 'slider', min: 0, max: 10, hint: 'halved on its way to the camera'},
  {name: 'sd_armed', title: 'Sound alarm', kind: 'switch'},
  {name: 'sd_sensitivity', title: 'Sound sensitivity', kind: 'slider', min: 0, max: 10, hint: 'halved on its way to the camera'},
  {name: 'td_armed', title: 'Temperature alarm', kind: 'switch'},
  {name: 'td_up', title: 'Too warm above', kind: 'number', unit: '°C'},
  {name: 'td_down', title: 'Too cold below', kind: 'number', unit: '°C'},
  {name: 'pd_armed', title: 'Battery alarm', kind: 'switch'},
  {name: 'pd_setting', title: 'Battery low under', kind: 'slider', min: 0, max: 100, unit: '%'},
  {name: 'csd_armed', title: 'Cloud storage alarm', kind: 'switch', unread: true},
  {name: 'csd_setting', title: 'Cloud storage low under', kind: 'slider', min: 0, max: 100, unit: '%', unread: true},
  {name: 'sdcard_armed', title: 'Card space alarm', kind: 'switch'},
  {name: 'sdcard_setting', title: 'Card space low under', kind: 'slider', min: 0, max: 100, unit: '%'},
  {name: 'high_definition', title: 'Picture', kind: 'choice', choices: [['1', 'low (400 × 240)'], ['2', 'medium (800 × 480)'], ['3', 'high (1280 × 720)']],
    hint: 'detections off, stream changed, detections back: some 10 s'},
];

export const statuses = [
  ['Battery', 'Battery, %'], ['Adapt', 'Mains adapter'], ['Temp_now_status', 'Temperature, °C'], ['Sdcard', 'Card there'],
  ['Sdsize', 'Card size, MB'], ['sdcardquota', 'Card free, MB'], ['firmware_ver', 'Firmware'], ['firmware_newver', 'Newer firmware'],
  ['Upgrade_SW_status', 'Upgrade'], ['Upgrade_SW_process', 'Download, %'], ['Nightlight', 'Night light'], ['Recording', 'Recording'],
  ['LullabyPlay', 'Lullaby'], ['LullabyMode', 'Lullaby mode'], ['LullabySong', 'Song'], ['LullabyTime', 'Song length, s'],
  ['LullabyPlayingTime', 'Played, s'], ['LullabyVolume', 'Volume'], ['resolution_capability', 'Resolutions'],
];

export const operations = [
  ['Night light', [['on', 30, 1], ['off', 30, 0]]],
  ['Lullaby', [['play', 40, 1], ['pause', 40, 2], ['resume', 40, 3], ['stop', 40, 0]]],
  ['Song', [['1', 42, 0], ['2', 42, 1], ['3', 42, 2]]],
  ['Order', [['all', 43, 2], ['random', 43, 1], ['one', 43, 0]]],
  ['Volume', [['low', 44, 1], ['middle', 44, 5], ['high', 44, 9]]],
  ['Stream', [['low', 45, 1], ['medium', 45, 2], ['high', 45, 3]]],
  ['Turn', [['up', 1, 0], ['down', 2, 0], ['left', 4, 0], ['right', 5, 0]]],
];
