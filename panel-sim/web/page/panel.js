'use strict';
// The virtual panel's page: draws the state that panel-sim pushes over the
// WebSocket and sends back the operator's input and, for each state, that it
// has been drawn (panel-sim sends the next one only then).

const TFT_WIDTH = 320; // pixels of each TFT screen
const TFT_HEIGHT = 240;
const ZOOM = Number(new URLSearchParams(location.search).get('zoom')) || 2;
const SAMPLE = 'The quick brown fox 0123456789';
const MARK = [255, 210, 0]; // the simulator's underline of painted text
// Key codes the shared shortcuts know besides characters.
const SPECIAL_KEYS = { ArrowUp: 0x10000, ArrowDown: 0x10001, Escape: 0x10002, Enter: 13, Backspace: 0x7f };

let socket = null;
let state = null;
const fonts = new Map(); // name -> font, or {error}, or null while loading

const $ = (id) => document.getElementById(id);

function send(message) {
  if (socket && socket.readyState === WebSocket.OPEN)
    socket.send(JSON.stringify(message));
}

function element(tag, className, parent) {
  const e = document.createElement(tag);
  if (className)
    e.className = className;
  if (parent)
    parent.appendChild(e);
  return e;
}

// Press while the pointer is down, release when it is up or gone.
function holdable(e, key) {
  let down = false;
  e.addEventListener('pointerdown', (ev) => {
    ev.preventDefault(); // no focus: Enter stays the select key
    e.setPointerCapture(ev.pointerId);
    down = true;
    send({ op: 'press', n: key });
  });
  const up = () => {
    if (!down)
      return;
    down = false;
    send({ op: 'release', n: key });
  };
  e.addEventListener('pointerup', up);
  e.addEventListener('pointercancel', up);
}

function buildPage() {
  for (let i = 0; i < 3; ++i) {
    const figure = element('figure', 'tft', $('screens'));
    figure.id = 'tft-' + i;
    const canvas = element('canvas', '', figure);
    canvas.width = TFT_WIDTH;
    canvas.height = TFT_HEIGHT;
    canvas.style.width = TFT_WIDTH * ZOOM + 'px';
    canvas.style.height = TFT_HEIGHT * ZOOM + 'px';
    // The rows as text, for screen readers and tests.
    const rows = element('ol', 'rows', figure);
    for (let row = 0; row < 9; ++row)
      element('li', '', rows).dataset.row = row;
    element('figcaption', '', figure);
  }
  for (let key = 0; key < 24; ++key) {
    const b = element('button', 'key', $('keys'));
    b.type = 'button';
    b.dataset.key = key;
    b.innerHTML = key + '<small></small>';
    holdable(b, key);
  }
  for (let shaft = 0; shaft < 6; ++shaft) {
    const box = element('div', 'shaft', $('shafts'));
    box.dataset.shaft = shaft;
    const knob = element('div', 'knob', box);
    element('div', 'label', box);
    knob.addEventListener('wheel', (ev) => {
      ev.preventDefault();
      if (ev.deltaY !== 0)
        send({ op: 'turn', n: shaft, delta: ev.deltaY > 0 ? 1 : -1 });
    }, { passive: false });
    // A drag turns by one step every 16 pixels (down is +1); a click pushes.
    let start = null;
    let dragged = false;
    knob.addEventListener('pointerdown', (ev) => {
      ev.preventDefault();
      knob.setPointerCapture(ev.pointerId);
      start = ev.clientY;
      dragged = false;
    });
    knob.addEventListener('pointermove', (ev) => {
      if (start === null)
        return;
      const steps = Math.trunc((ev.clientY - start) / 16);
      if (steps !== 0) {
        send({ op: 'turn', n: shaft, delta: steps });
        start += steps * 16;
        dragged = true;
      }
    });
    knob.addEventListener('pointerup', () => {
      if (start !== null && !dragged) {
        send({ op: 'press', n: 24 + shaft });
        send({ op: 'release', n: 24 + shaft });
      }
      start = null;
    });
    knob.addEventListener('pointercancel', () => { start = null; });
  }
  for (let gpi = 0; gpi < 8; ++gpi) {
    const b = element('button', 'gpi', $('gpis'));
    b.type = 'button';
    b.dataset.gpi = gpi;
    b.textContent = gpi;
    b.addEventListener('pointerdown', (ev) => ev.preventDefault());
    b.addEventListener('click', () => send({ op: 'gpi', n: gpi }));
  }
  const shortcut = (id, character) => {
    $(id).addEventListener('pointerdown', (ev) => ev.preventDefault());
    $(id).addEventListener('click', () => send({ op: 'key', n: character.charCodeAt(0) }));
  };
  shortcut('take-over', 'm');
  shortcut('drop-image', '[');
  shortcut('remove-image', ']');
  document.addEventListener('keydown', (ev) => {
    if (ev.ctrlKey || ev.altKey || ev.metaKey)
      return;
    if (ev.key === '?') {
      $('help').hidden = !$('help').hidden;
      ev.preventDefault();
      return;
    }
    const code = SPECIAL_KEYS[ev.key] ?? (ev.key.length === 1 ? ev.key.charCodeAt(0) : undefined);
    if (code === undefined)
      return;
    ev.preventDefault();
    send({ op: 'key', n: code });
  });
}

function percent(level) {
  return level < 0 ? 100 : level;
}

function scaled(rgb, level) {
  const f = percent(level) / 100;
  return [(rgb >> 16) & 255, (rgb >> 8) & 255, rgb & 255].map((c) => Math.round(c * f));
}

// Draws text lines ({text, inverse, marks: [[column, colour, background]]})
// in the font's cells, white on black as the TFT shows them at that level.
function paint(canvas, font, lines, level) {
  // Most updates change one screen or none: the others keep their pixels.
  const drawn = JSON.stringify([font && font.name, font && !!font.glyphs, canvas.width, level, lines]);
  if (canvas.drawn === drawn)
    return;
  canvas.drawn = drawn;
  const ctx = canvas.getContext('2d');
  const image = ctx.createImageData(canvas.width, canvas.height);
  const px = image.data;
  for (let i = 3; i < px.length; i += 4)
    px[i] = 255;
  const on = scaled(0xffffff, level);
  const off = scaled(0, level);
  const set = (x, y, rgb) => {
    if (x < 0 || y < 0 || x >= canvas.width || y >= canvas.height)
      return;
    const i = (y * canvas.width + x) * 4;
    px[i] = rgb[0];
    px[i + 1] = rgb[1];
    px[i + 2] = rgb[2];
  };
  if (font && font.glyphs) {
    const w = font.width;
    const h = font.height;
    lines.forEach((line, row) => {
      const marks = new Map(line.marks.map((m) => [m[0], m]));
      for (let column = 0; column < line.text.length; ++column) {
        const mark = marks.get(column);
        let fg = line.inverse ? off : on;
        let bg = line.inverse ? on : off;
        if (mark) {
          fg = scaled(mark[1], level);
          bg = scaled(mark[2], level);
        }
        const glyph = font.glyphs[line.text.charCodeAt(column)] || font.glyphs[63];
        for (let y = 0; y < h; ++y) {
          const bits = glyph ? glyph[y] : 0;
          for (let x = 0; x < w; ++x)
            set(column * w + x, row * h + y, (bits >> (w - 1 - x)) & 1 ? fg : bg);
        }
        if (mark) {
          for (let x = 0; x < w; ++x)
            set(column * w + x, row * h + h - 1, MARK);
        }
      }
    });
  }
  ctx.putImageData(image, 0, 0);
  canvas.dataset.font = font && font.glyphs ? font.name : '';
}

function loadFont(name) {
  if (fonts.has(name))
    return fonts.get(name);
  fonts.set(name, null);
  fetch('font/' + encodeURIComponent(name))
    .then(async (response) => {
      if (!response.ok)
        throw new Error(await response.text());
      return response.json();
    })
    .then((font) => fonts.set(name, font), (error) => fonts.set(name, { error: error.message }))
    .then(() => { if (state) render(state); });
  return null;
}

// "192" at column 0 of a row: "0:192"; several runs apart by blanks.
function markRuns(row) {
  const runs = [];
  let last = -2;
  for (const [column] of row.marks) {
    if (column === last + 1)
      runs[runs.length - 1] += row.text[column];
    else
      runs.push(column + ':' + row.text[column]);
    last = column;
  }
  return runs.join(' ');
}

function fillList(id, lines) {
  const list = $(id);
  list.replaceChildren(...lines.map((line) => {
    const li = document.createElement('li');
    li.textContent = line;
    return li;
  }));
}

function render(s) {
  $('daemon').textContent = s.daemon;
  $('root').textContent = 'root ' + s.root;
  $('status').textContent = s.status;
  $('status').classList.toggle('warning', s.warning);
  $('files').textContent = s.files;
  const font = loadFont(s.font);
  const fontText = font === null ? s.font + ' (loading)' : font.error ? s.font + ': ' + font.error : s.font;
  const level = s.tft < 0 ? '?' : s.tft + '%';
  s.screens.forEach((rows, i) => {
    const figure = $('tft-' + i);
    paint(figure.querySelector('canvas'), font, rows, s.tft);
    figure.querySelectorAll('.rows li').forEach((li, row) => {
      li.textContent = rows[row].text.replace(/ +$/, '');
      li.dataset.inverse = rows[row].inverse ? 1 : 0;
      li.dataset.marks = markRuns(rows[row]);
    });
    figure.querySelector('figcaption').textContent = `TFT ${i}  ${level}  font ${fontText}`;
  });
  const sample = $('font-sample');
  // A canvas given a size, even its own, loses its pixels.
  if (font && font.glyphs && (sample.width !== SAMPLE.length * font.width || sample.height !== font.height)) {
    sample.width = SAMPLE.length * font.width;
    sample.height = font.height;
    sample.style.width = sample.width * ZOOM + 'px';
    sample.style.height = sample.height * ZOOM + 'px';
  }
  paint(sample, font, [{ text: SAMPLE, inverse: false, marks: [] }], s.tft);
  $('font-caption').textContent = `Launcher font ${fontText}, what the main application draws in:`;

  const keyOpacity = percent(s.keyLevel) / 100;
  document.querySelectorAll('.key').forEach((b) => {
    const [level1, level2, pressed] = s.keys[b.dataset.key];
    b.classList.toggle('lit', level1 > 0);
    b.classList.toggle('blink', level1 < 0);
    b.classList.toggle('pressed', pressed);
    b.style.opacity = level1 !== 0 ? 0.4 + 0.6 * keyOpacity : 1;
    b.querySelector('small').textContent = level1 + '/' + level2;
  });
  document.querySelectorAll('.shaft').forEach((box) => {
    const shaft = Number(box.dataset.shaft);
    const [level1, level2, pressed] = s.keys[24 + shaft];
    const knob = box.querySelector('.knob');
    knob.style.transform = `rotate(${s.shafts[shaft] * 24}deg)`;
    knob.classList.toggle('lit', level1 !== 0);
    knob.classList.toggle('pressed', pressed);
    box.querySelector('.label').textContent = `shaft ${shaft}: ${s.shafts[shaft]} key ${24 + shaft} ${level1}/${level2}`;
  });
  $('leds').replaceChildren(...s.leds.map(([name, value]) => {
    const led = document.createElement('span');
    led.className = 'led' + (value > 0 ? ' on' : value < 0 ? ' unknown' : '');
    led.innerHTML = '<i></i>';
    led.append(`${name} ${value < 0 ? '?' : value}`);
    return led;
  }));
  document.querySelectorAll('.gpi').forEach((b) => b.classList.toggle('on', s.gpis[b.dataset.gpi]));
  $('take-over').textContent = `take over: hold ${s.activation.join('+')} 5.5 s (m)`;
  $('levels').textContent = `Levels: TFT ${level}, key lights ${s.keyLevel < 0 ? '?' : s.keyLevel + '%'}`;
  fillList('events', s.events);
  fillList('commands', s.commands);
  fillList('calls', s.calls);
  fillList('warnings', s.warnings);
  $('help').textContent = s.help.join('\n');
  document.body.dataset.seq = s.seq;
}

function connect() {
  socket = new WebSocket((location.protocol === 'https:' ? 'wss://' : 'ws://') + location.host + '/ws');
  socket.onmessage = (event) => {
    state = JSON.parse(event.data);
    render(state);
    send({ op: 'drawn', seq: state.seq });
  };
  socket.onclose = () => {
    $('daemon').textContent = 'panel-sim is gone: trying again';
    setTimeout(connect, 1000);
  };
}

buildPage();
connect();
