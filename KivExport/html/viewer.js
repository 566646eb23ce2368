// The viewer of a page that kiv writes: it draws and samples what the page embeds (samples as
// base64 float32, the library's levellings, ranges and figures as JSON) and computes no figure of
// its own. Small functions, no build step.
(function () {
  "use strict";

  const DROPOUT = [140, 140, 153]; // the previews' colour of a NaN sample
  const MAX_CANVAS = 512;
  const PALETTE = [[0.12, 0.47, 0.71], [0.84, 0.15, 0.16], [0.17, 0.63, 0.17],
    [0.58, 0.40, 0.74], [1.00, 0.50, 0.05], [0.55, 0.34, 0.29]];
  const FIGURES = [
    ["count", "used samples", false],
    ["excluded", "dropouts and excluded", false],
    ["mean", "mean height", true],
    ["median", "median height", true],
    ["min", "lowest", true],
    ["max", "highest", true],
    ["Sa", "arithmetic mean deviation", true],
    ["Sq", "root mean square deviation (over N)", true],
    ["Ssk", "skewness", false],
    ["Sku", "kurtosis (3 for a Gaussian surface)", false],
    ["Sp", "highest peak above the mean", true],
    ["Sv", "deepest valley below the mean", true],
    ["Sz", "Sp + Sv", true],
  ];

  const $ = (id) => document.getElementById(id);

  // --- data ---

  function decodeBase64(text) {
    const binary = atob(text.trim());
    const bytes = new Uint8Array(binary.length);
    for (let i = 0; i < binary.length; ++i) bytes[i] = binary.charCodeAt(i);
    return bytes;
  }

  const LITTLE_ENDIAN = new Uint8Array(new Uint32Array([1]).buffer)[0] === 1;

  // The page's floats are little-endian, as the C++ side writes them on any host.
  function decodeFloat32(text) {
    const bytes = decodeBase64(text);
    if (LITTLE_ENDIAN) return new Float32Array(bytes.buffer, 0, bytes.length >> 2);
    const view = new DataView(bytes.buffer);
    const values = new Float32Array(bytes.length >> 2);
    for (let i = 0; i < values.length; ++i) values[i] = view.getFloat32(4 * i, true);
    return values;
  }

  // JSON has no NaN: the library writes "nan", "inf" and "-inf".
  function jsonNumber(value) {
    if (typeof value !== "string") return value;
    return value === "inf" ? Infinity : value === "-inf" ? -Infinity : NaN;
  }

  // --- numbers and units ---

  function formatNumber(value, digits) {
    if (!Number.isFinite(value)) return Number.isNaN(value) ? "NaN" : value > 0 ? "∞" : "−∞";
    const magnitude = Math.abs(value);
    let text = magnitude !== 0 && (magnitude >= 1e6 || magnitude < 1e-3)
      ? value.toExponential((digits || 4) - 1).replace(/\.?0+e/, "e")
      : String(parseFloat(value.toPrecision(digits || 4)));
    return text.replace(/-/g, "−");
  }

  const LENGTH_UNITS = [["m", 1], ["mm", 1e-3], ["µm", 1e-6], ["nm", 1e-9], ["pm", 1e-12]];

  // The unit that suits lengths up to metres: "µm" for a 10 µm scan.
  function lengthUnit(metres) {
    for (const [name, size] of LENGTH_UNITS) {
      if (metres >= size * (1 - 1e-9)) return { name: name, metres: size };
    }
    return { name: "pm", metres: 1e-12 };
  }

  // The longest of 1, 2 or 5 x 10^n metres not above maxMetres, as the previews' scale bar.
  function roundLength(maxMetres) {
    const power = Math.pow(10, Math.floor(Math.log10(maxMetres)));
    let length = power;
    for (const factor of [5, 2, 1]) {
      if (factor * power <= maxMetres * (1 + 1e-9)) { length = factor * power; break; }
    }
    const unit = lengthUnit(length);
    return { metres: length, text: String(parseFloat((length / unit.metres).toPrecision(6))) + " " + unit.name };
  }

  // --- the library's profile rule ---

  // Heights along a line as Kiv::Analysis::LineProfile samples them: points at k pixels from the
  // start for k = 0 .. floor(length), each bilinear between the four pixels around it, a
  // neighbour with zero weight left out (so a point on a pixel is that pixel) and NaN where a
  // weighted neighbour is NaN. Distances in metres when the pixel size is known (which differs
  // along x and y), in pixels otherwise. Points are (x = column, y = row), inside the image.
  function lineProfile(samples, rows, columns, from, to, pixel) {
    const dx = to.x - from.x;
    const dy = to.y - from.y;
    const length = Math.hypot(dx, dy);
    const metres = !!pixel && pixel[0] > 0 && pixel[1] > 0;
    const metresPerStep = metres && length > 0 ? Math.hypot(dx * pixel[0], dy * pixel[1]) / length : 1;
    const stepX = length > 0 ? dx / length : 0;
    const stepY = length > 0 ? dy / length : 0;
    const steps = Math.floor(length);
    const distance = [];
    const height = [];
    for (let k = 0; k <= steps; ++k) {
      const x = Math.max(Math.min(from.x + k * stepX, columns - 1), 0);
      const y = Math.max(Math.min(from.y + k * stepY, rows - 1), 0);
      distance.push(k * metresPerStep);
      height.push(bilinear(samples, columns, x, y));
    }
    return { distance: distance, height: height, metres: metres };
  }

  function bilinear(samples, columns, x, y) {
    const column = Math.floor(x);
    const row = Math.floor(y);
    const fx = x - column;
    const fy = y - row;
    const weights = [[(1 - fx) * (1 - fy), fx * (1 - fy)], [(1 - fx) * fy, fx * fy]];
    let height = 0;
    for (let dr = 0; dr < 2; ++dr) {
      for (let dc = 0; dc < 2; ++dc) {
        if (weights[dr][dc] !== 0) height += weights[dr][dc] * samples[(row + dr) * columns + column + dc];
      }
    }
    return height;
  }

  // --- the image viewer ---

  function imageViewer(page) {
    const image = page.image;
    const canvas = $("image");
    const context = canvas.getContext("2d");
    const pixel = image.pixel;
    const unit = image.unit || "";
    const sideMetres = pixel ? Math.max(pixel[0] * image.columns, pixel[1] * image.rows) : 0;
    const distanceUnit = pixel ? lengthUnit(sideMetres) : null;
    const colormaps = {};
    for (const name of Object.keys(page.colormaps)) colormaps[name] = decodeBase64(page.colormaps[name]);
    const samples = {};
    const state = {
      levelling: image.shown,
      colormap: colormaps[image.colormap] ? image.colormap : "gray",
      range: null,
      view: { scale: 1, x: 0, y: 0 },
      line: null,
      profile: null,
      mode: "pan",
    };
    const aspect = image.rows / image.columns;
    const size = {
      width: Math.round(MAX_CANVAS * Math.min(1, Math.max(1 / aspect, 0.25))),
      height: Math.round(MAX_CANVAS * Math.min(1, Math.max(aspect, 0.25))),
    };
    const bitmap = document.createElement("canvas");
    bitmap.width = image.columns;
    bitmap.height = image.rows;
    const pixels = bitmap.getContext("2d").createImageData(image.columns, image.rows);
    let profilePlot = null;

    // Decoded the first time its levelling is shown.
    function levelledSamples(index) {
      if (!samples[index]) samples[index] = decodeFloat32($("samples-" + index).textContent);
      return samples[index];
    }

    function current() { return image.levellings[state.levelling]; }

    function defaultRange() {
      const range = image.range || current().range;
      return [jsonNumber(range[0]), jsonNumber(range[1])];
    }

    // The samples in the colour map: value to entry round(t * 255) of the 256-entry table.
    function colour() {
      const values = levelledSamples(state.levelling);
      const table = colormaps[state.colormap];
      const [low, high] = state.range;
      const scale = 255 / (high - low);
      const out = pixels.data;
      for (let i = 0, o = 0; i < values.length; ++i, o += 4) {
        const v = values[i];
        if (v !== v || v === Infinity || v === -Infinity) {
          out[o] = DROPOUT[0]; out[o + 1] = DROPOUT[1]; out[o + 2] = DROPOUT[2];
        } else {
          const entry = 3 * Math.round(Math.min(Math.max((v - low) * scale, 0), 255));
          out[o] = table[entry]; out[o + 1] = table[entry + 1]; out[o + 2] = table[entry + 2];
        }
        out[o + 3] = 255;
      }
      bitmap.getContext("2d").putImageData(pixels, 0, 0);
      drawColourBar();
      draw();
    }

    function setupCanvas(target, width, height) {
      const ratio = window.devicePixelRatio || 1;
      target.width = Math.round(width * ratio);
      target.height = Math.round(height * ratio);
      target.style.width = width + "px";
      target.style.height = height + "px";
      const c = target.getContext("2d");
      c.setTransform(ratio, 0, 0, ratio, 0, 0);
      return c;
    }

    function draw() {
      const view = state.view;
      context.save();
      context.setTransform(1, 0, 0, 1, 0, 0);
      context.clearRect(0, 0, canvas.width, canvas.height);
      context.restore();
      context.imageSmoothingEnabled = false;
      context.drawImage(bitmap, view.x, view.y, image.columns * view.scale, image.rows * view.scale);
      if (state.line) drawLine(state.line);
      drawScaleBar();
    }

    function drawLine(line) {
      const a = toCanvas(line.from);
      const b = toCanvas(line.to);
      context.lineWidth = 3;
      context.strokeStyle = "rgba(255,255,255,0.85)";
      context.beginPath(); context.moveTo(a.x, a.y); context.lineTo(b.x, b.y); context.stroke();
      context.lineWidth = 1.5;
      context.strokeStyle = "#d7263d";
      context.beginPath(); context.moveTo(a.x, a.y); context.lineTo(b.x, b.y); context.stroke();
    }

    function drawColourBar() {
      const bar = $("colorbar");
      const c = setupCanvas(bar, 20, size.height);
      const table = colormaps[state.colormap];
      for (let y = 0; y < size.height; ++y) {
        const entry = 3 * Math.round((1 - (y + 0.5) / size.height) * 255);
        c.fillStyle = "rgb(" + table[entry] + "," + table[entry + 1] + "," + table[entry + 2] + ")";
        c.fillRect(0, y, 20, 1);
      }
      $("bar-max").textContent = formatNumber(state.range[1]);
      $("bar-min").textContent = formatNumber(state.range[0]);
      $("bar-unit").textContent = unit;
    }

    // A bar of a round length, at most a third of the canvas, in physical units.
    function drawScaleBar() {
      const bar = $("scale-bar");
      if (!pixel) { bar.hidden = true; return; }
      const metresPerDot = pixel[0] / state.view.scale;
      const length = roundLength(size.width / 3 * metresPerDot);
      bar.querySelector(".bar").style.width = (length.metres / metresPerDot) + "px";
      bar.querySelector(".label").textContent = length.text;
    }

    // Pixel centres lie on whole numbers, as the library's profile points.
    function toImage(event) {
      const box = canvas.getBoundingClientRect();
      return {
        x: (event.clientX - box.left - canvas.clientLeft - state.view.x) / state.view.scale - 0.5,
        y: (event.clientY - box.top - canvas.clientTop - state.view.y) / state.view.scale - 0.5,
      };
    }

    function toCanvas(point) {
      return { x: state.view.x + (point.x + 0.5) * state.view.scale, y: state.view.y + (point.y + 0.5) * state.view.scale };
    }

    function clampToImage(point) {
      return { x: Math.min(Math.max(point.x, 0), image.columns - 1), y: Math.min(Math.max(point.y, 0), image.rows - 1) };
    }

    function fit() {
      const scale = Math.min(size.width / image.columns, size.height / image.rows);
      const whole = scale >= 1 ? Math.floor(scale) : scale;
      state.view = {
        scale: whole,
        x: Math.round((size.width - image.columns * whole) / 2),
        y: Math.round((size.height - image.rows * whole) / 2),
      };
      draw();
    }

    function zoom(event) {
      event.preventDefault();
      const box = canvas.getBoundingClientRect();
      const px = event.clientX - box.left - canvas.clientLeft;
      const py = event.clientY - box.top - canvas.clientTop;
      const fitScale = Math.min(size.width / image.columns, size.height / image.rows);
      const view = state.view;
      const scale = Math.min(Math.max(view.scale * Math.exp(-event.deltaY * 0.002), fitScale / 4), 64 * Math.max(fitScale, 1));
      view.x = px - (px - view.x) * scale / view.scale;
      view.y = py - (py - view.y) * scale / view.scale;
      view.scale = scale;
      draw();
    }

    function showReadout(event) {
      const at = toImage(event);
      const column = Math.round(at.x);
      const row = Math.round(at.y);
      const readout = $("readout");
      if (column < 0 || row < 0 || column >= image.columns || row >= image.rows) {
        readout.textContent = "\u00a0";
        delete readout.dataset.column;
        return;
      }
      const z = levelledSamples(state.levelling)[row * image.columns + column];
      const position = pixel
        ? "x " + formatNumber(column * pixel[0] / distanceUnit.metres) + " " + distanceUnit.name +
          "   y " + formatNumber(row * pixel[1] / distanceUnit.metres) + " " + distanceUnit.name
        : "x " + column + " px   y " + row + " px";
      readout.textContent = position + "   z " + formatNumber(z, 5) + (unit ? " " + unit : "") +
        "   (column " + column + ", row " + row + ")";
      readout.dataset.column = column;
      readout.dataset.row = row;
      readout.dataset.z = String(z);
      if (pixel) { readout.dataset.x = String(column * pixel[0]); readout.dataset.y = String(row * pixel[1]); }
    }

    function updateProfile() {
      if (!state.line) return;
      const p = lineProfile(levelledSamples(state.levelling), image.rows, image.columns, state.line.from, state.line.to, pixel);
      state.profile = p;
      const scale = p.metres ? distanceUnit.metres : 1;
      const xs = p.distance.map((d) => d / scale);
      const ys = p.height.map((h) => (Number.isFinite(h) ? h : null));
      $("profile-hint").hidden = true;
      if (!profilePlot) {
        const box = $("profile-plot");
        profilePlot = new uPlot({
          width: Math.max(box.clientWidth, 300),
          height: 260,
          legend: { show: true },
          cursor: { drag: { x: false, y: false } },
          scales: { x: { time: false } },
          axes: [
            { label: "distance (" + (p.metres ? distanceUnit.name : "px") + ")" },
            { label: "height" + (unit ? " (" + unit + ")" : ""), size: 60 },
          ],
          series: [
            { label: "distance", value: (u, v) => (v == null ? "–" : formatNumber(v)) },
            { label: "height", stroke: "#d7263d", width: 1.5, points: { show: false },
              value: (u, v) => (v == null ? "–" : formatNumber(v, 5)) },
          ],
        }, [xs, ys], box);
      } else {
        profilePlot.setData([xs, ys]);
      }
    }

    function listenToPointer() {
      let drag = null;
      canvas.addEventListener("pointerdown", (event) => {
        if (event.button !== 0) return;
        canvas.setPointerCapture(event.pointerId);
        if (state.mode === "profile" || event.shiftKey) {
          const start = clampToImage(toImage(event));
          drag = { profile: true };
          state.line = { from: start, to: start };
        } else {
          drag = { profile: false, x: event.clientX, y: event.clientY };
          canvas.classList.add("dragging");
        }
      });
      canvas.addEventListener("pointermove", (event) => {
        showReadout(event);
        if (!drag) return;
        if (drag.profile) {
          state.line.to = clampToImage(toImage(event));
          updateProfile();
        } else {
          state.view.x += event.clientX - drag.x;
          state.view.y += event.clientY - drag.y;
          drag.x = event.clientX;
          drag.y = event.clientY;
        }
        draw();
      });
      const end = (event) => {
        if (drag && drag.profile) {
          state.line.to = clampToImage(toImage(event));
          updateProfile();
          draw();
        }
        drag = null;
        canvas.classList.remove("dragging");
      };
      canvas.addEventListener("pointerup", end);
      canvas.addEventListener("pointercancel", () => { drag = null; canvas.classList.remove("dragging"); });
      canvas.addEventListener("wheel", zoom, { passive: false });
    }

    function showParameters() {
      const figures = current().figures;
      const body = $("parameters").tBodies[0];
      body.textContent = "";
      for (const [key, what, inUnit] of FIGURES) {
        const value = jsonNumber(figures[key]);
        const row = body.insertRow();
        row.dataset.key = key;
        row.appendChild(document.createElement("th")).textContent = key;
        const cell = row.insertCell();
        cell.className = "value";
        cell.dataset.value = String(value);
        cell.textContent = (key === "count" || key === "excluded" ? String(value) : formatNumber(value, 5)) +
          (inUnit && unit ? " " + unit : "");
        const note = row.insertCell();
        note.className = "what";
        note.textContent = what;
      }
      $("parameters-levelling").textContent = "(levelled: " + current().method + ")";
    }

    function showRange() {
      $("range-min").value = parseFloat(state.range[0].toPrecision(6));
      $("range-max").value = parseFloat(state.range[1].toPrecision(6));
    }

    function readRange() {
      const low = parseFloat($("range-min").value);
      const high = parseFloat($("range-max").value);
      if (Number.isFinite(low) && Number.isFinite(high) && low < high) {
        state.range = [low, high];
        colour();
      }
    }

    function setLevelling(index) {
      state.levelling = index;
      state.range = defaultRange();
      showRange();
      showParameters();
      colour();
      updateProfile();
    }

    function listenToControls() {
      const levelling = $("levelling");
      image.levellings.forEach((l, i) => levelling.add(new Option(l.name, l.name, false, i === state.levelling)));
      levelling.addEventListener("change", () => setLevelling(levelling.selectedIndex));
      const colormap = $("colormap");
      for (const name of Object.keys(colormaps)) colormap.add(new Option(name, name, false, name === state.colormap));
      colormap.addEventListener("change", () => { state.colormap = colormap.value; colour(); });
      $("range-min").addEventListener("change", readRange);
      $("range-max").addEventListener("change", readRange);
      $("range-reset").addEventListener("click", () => { state.range = defaultRange(); showRange(); colour(); });
      const mode = $("mode-profile");
      mode.addEventListener("click", () => {
        state.mode = state.mode === "profile" ? "pan" : "profile";
        mode.setAttribute("aria-pressed", String(state.mode === "profile"));
        canvas.classList.toggle("profiling", state.mode === "profile");
      });
      $("view-fit").addEventListener("click", fit);
    }

    context.imageSmoothingEnabled = false;
    setupCanvas(canvas, size.width, size.height);
    $("scale-bar").style.width = size.width + "px";
    listenToControls();
    listenToPointer();
    state.range = defaultRange();
    showRange();
    showParameters();
    fit();
    colour();

    return {
      get levelling() { return current().name; },
      get colormap() { return state.colormap; },
      get range() { return state.range.slice(); },
      get view() { return Object.assign({}, state.view); },
      get profile() {
        return state.profile && {
          from: Object.assign({}, state.line.from),
          to: Object.assign({}, state.line.to),
          distance: state.profile.distance.slice(),
          height: state.profile.height.slice(),
          metres: state.profile.metres,
        };
      },
    };
  }

  // --- force curves ---

  // Curves with their own x values on one x axis, as uPlot draws them: the union of the x values,
  // each curve null where it has no point.
  function alignCurves(curves) {
    const xs = Array.from(new Set(curves.flatMap((c) => c.x.filter(Number.isFinite)))).sort((a, b) => a - b);
    const index = new Map(xs.map((x, i) => [x, i]));
    const columns = curves.map((c) => {
      const ys = new Array(xs.length).fill(null);
      c.x.forEach((x, i) => { if (index.has(x) && Number.isFinite(c.y[i])) ys[index.get(x)] = c.y[i]; });
      return ys;
    });
    return [xs].concat(columns);
  }

  // The legend shows each curve's value at its own point nearest the cursor.
  function nearestPoint(values, at) {
    for (let d = 0; d < values.length; ++d) {
      if (at - d >= 0 && values[at - d] != null) return at - d;
      if (at + d < values.length && values[at + d] != null) return at + d;
    }
    return at;
  }

  function hue(series, retract) {
    const c = PALETTE[series % PALETTE.length];
    const shade = retract ? 0.6 : 1;
    return "rgb(" + c.map((v) => Math.round(v * shade * 255)).join(",") + ")";
  }

  function curvePlot(page) {
    const table = decodeFloat32($("curves").textContent);
    const curves = page.curves;
    const column = (c) => {
      const values = new Array(curves.points);
      for (let p = 0; p < curves.points; ++p) values[p] = table[p * curves.columns + c];
      return values;
    };
    const data = alignCurves(curves.series.map((s) => ({ x: column(s.x), y: column(s.y) })));
    const box = $("curve-plot");
    const plot = new uPlot({
      width: Math.max(box.clientWidth, 400),
      height: 520,
      scales: { x: { time: false } },
      cursor: { dataIdx: (u, seriesIndex, closest) => nearestPoint(u.data[seriesIndex], closest) },
      axes: [{ label: curves.xLabel }, { label: curves.yLabel, size: 64 }],
      series: [{ label: curves.xLabel, value: (u, v) => (v == null ? "–" : formatNumber(v, 5)) }].concat(
        curves.series.map((s) => ({
          label: s.name,
          stroke: hue(s.series, s.retract),
          dash: s.retract ? [6, 4] : undefined,
          width: 1.5,
          spanGaps: true,
          points: { show: false },
          value: (u, v) => (v == null ? "–" : formatNumber(v, 5)),
        }))),
    }, data, box);
    return {
      get series() { return plot.series.slice(1).map((s) => ({ label: s.label, show: s.show })); },
    };
  }

  // --- the header ---

  function headerTable(values) {
    const body = $("header").tBodies[0];
    for (const [key, value] of values) {
      const row = body.insertRow();
      row.insertCell().textContent = key;
      row.insertCell().textContent = value;
    }
    const count = $("header-count");
    const filter = $("header-filter");
    const apply = () => {
      const words = filter.value.trim().toLowerCase();
      let shown = 0;
      for (const row of body.rows) {
        row.hidden = words !== "" && !row.textContent.toLowerCase().includes(words);
        shown += row.hidden ? 0 : 1;
      }
      count.textContent = words === "" ? "(" + values.length + " values)" : "(" + shown + " of " + values.length + " values)";
    };
    filter.addEventListener("input", apply);
    apply();
  }

  function start() {
    const page = JSON.parse($("page-data").textContent);
    if (page.file !== page.title) $("file-name").textContent = page.file;
    headerTable(page.header);
    const viewer = page.kind === "image" ? { image: imageViewer(page) } : { curves: curvePlot(page) };
    window.kivPage = Object.freeze(Object.assign({ kind: page.kind }, viewer));
    document.body.dataset.ready = "1";
  }

  start();
})();
