"use strict";
(() => {
  const find = (id) => document.getElementById(id);
  const sheets = [...document.querySelectorAll(".sheet")].map((sheet) => ({
    frame: sheet.dataset.frame,
    title: sheet.dataset.title,
    width: Number(sheet.dataset.width),
    height: Number(sheet.dataset.height),
    scale: Number(sheet.dataset.scale),
    pictures: new Map([...sheet.querySelectorAll(".picture")].map(
      (picture) => [picture.dataset.layer, {label: picture.dataset.label, image: picture.querySelector("img")}])),
  }));
  if (sheets.length === 0) return;
  document.documentElement.classList.add("script");
  find("swipe").hidden = false;

  const view = find("view");
  const divider = find("divider");
  const choices = {left: find("left"), right: find("right"), part: find("part")};
  const layers = {
    under: find("under"),
    left: find("left-side").firstElementChild,
    right: find("right-side").firstElementChild,
  };
  // Where the picture lies: zoom 1 shows all of it; x and y are the share of it that lies in the middle of the view.
  const state = {sheet: sheets[0], split: 50, zoom: 1, x: 0.5, y: 0.5};
  const clamp = (value, low, high) => Math.min(Math.max(value, low), high);

  const fitScale = () => Math.min(view.clientWidth / state.sheet.width, view.clientHeight / state.sheet.height);
  const scale = () => fitScale() * state.zoom;
  // Up to eight pixels of the screen for one of the picture.
  const mostZoom = () => Math.max(8 / fitScale(), 1);

  function draw() {
    const {sheet} = state;
    const s = scale();
    const place = (share, size, room) => {
      const shown = size * s;
      if (shown <= room) return [0.5, (room - shown) / 2];
      const middle = clamp(share, room / 2 / shown, 1 - room / 2 / shown);
      return [middle, room / 2 - middle * shown];
    };
    const [x, left] = place(state.x, sheet.width, view.clientWidth);
    const [y, top] = place(state.y, sheet.height, view.clientHeight);
    state.x = x;
    state.y = y;
    for (const layer of Object.values(layers)) {
      layer.style.transform = `translate(${left}px, ${top}px) scale(${s})`;
      layer.classList.toggle("coarse", s >= 2);
    }
    layers.left.parentElement.style.clipPath = `inset(0 ${100 - state.split}% 0 0)`;
    layers.right.parentElement.style.clipPath = `inset(0 0 0 ${state.split}%)`;
    divider.style.left = `${state.split}%`;
    divider.setAttribute("aria-valuenow", String(Math.round(state.split)));
    divider.setAttribute("aria-valuetext", `${Math.round(state.split)} percent ${find("left-tag").textContent}, the rest ` +
      find("right-tag").textContent);
    view.classList.toggle("near", state.zoom > 1);
    // Pixels of the screen for one of pan.
    find("zoom").textContent = `${Math.round(100 * s / sheet.scale)} %`;
  }

  function show(layer, name, tag) {
    const {label, image} = state.sheet.pictures.get(name);
    layer.src = image.src;
    layer.alt = image.alt;
    layer.width = state.sheet.width;
    layer.height = state.sheet.height;
    if (tag) tag.textContent = label;
  }

  function showAll() {
    // As large as there is room, in the shape of the picture.
    const across = view.parentElement.clientWidth;
    const height = clamp(across * state.sheet.height / state.sheet.width, 240, Math.max(0.8 * innerHeight, 240));
    view.style.height = `${Math.round(height)}px`;
    view.style.width = `${Math.round(clamp(height * state.sheet.width / state.sheet.height, Math.min(320, across), across))}px`;
    show(layers.under, "pan", null);
    layers.under.alt = "";
    show(layers.left, choices.left.value, find("left-tag"));
    show(layers.right, choices.right.value, find("right-tag"));
    draw();
  }

  function fill(select, entries, chosen) {
    select.replaceChildren(...entries.map(([value, text]) => new Option(text, value, false, value === chosen)));
  }

  // The right image decides what can lie beside it: images of other ground do not.
  function choose() {
    const chosen = choices.right.value;
    const fitting = sheets.filter((sheet) => sheet.pictures.has(chosen));
    const part = fitting.some((sheet) => sheet.title === state.sheet.title) ? state.sheet.title : fitting[0].title;
    const kept = fitting[0].pictures.has(choices.left.value) ? choices.left.value : "ms";
    fill(choices.left, [...fitting[0].pictures].map(([name, {label}]) => [name, label]), kept);
    fill(choices.part, fitting.map((sheet) => [sheet.title, sheet.title]), part);
    state.sheet = fitting.find((sheet) => sheet.title === part);
    showAll();
  }

  function zoomTo(zoom, clientX, clientY) {
    const box = view.getBoundingClientRect();
    const dx = (clientX ?? box.left + box.width / 2) - box.left - box.width / 2;
    const dy = (clientY ?? box.top + box.height / 2) - box.top - box.height / 2;
    const before = scale();
    state.zoom = clamp(zoom, 1, mostZoom());
    const after = scale();
    // What lies under the pointer stays there.
    state.x += dx * (1 / before - 1 / after) / state.sheet.width;
    state.y += dy * (1 / before - 1 / after) / state.sheet.height;
    draw();
  }

  function moveBy(dx, dy) {
    state.x -= dx / scale() / state.sheet.width;
    state.y -= dy / scale() / state.sheet.height;
    draw();
  }

  function splitTo(percent) {
    state.split = clamp(percent, 0, 100);
    draw();
  }

  const splitAt = (clientX) => {
    const box = view.getBoundingClientRect();
    splitTo(100 * (clientX - box.left) / box.width);
  };

  const pointers = new Map();
  let holdsDivider = false;
  view.addEventListener("pointerdown", (event) => {
    if (event.button !== 0) return;
    view.setPointerCapture(event.pointerId);
    pointers.set(event.pointerId, {x: event.clientX, y: event.clientY});
    if (pointers.size === 1) holdsDivider = divider.contains(event.target) || state.zoom === 1;
    if (pointers.size === 1 && holdsDivider) splitAt(event.clientX);
    view.classList.add("held");
    divider.focus({preventScroll: true});
    event.preventDefault();
  });
  view.addEventListener("pointermove", (event) => {
    const last = pointers.get(event.pointerId);
    if (!last) return;
    const now = {x: event.clientX, y: event.clientY};
    if (pointers.size === 1) {
      if (holdsDivider) splitAt(now.x);
      else moveBy(now.x - last.x, now.y - last.y);
    } else {
      const other = [...pointers].find(([id]) => id !== event.pointerId)[1];
      const apart = (p) => Math.hypot(p.x - other.x, p.y - other.y);
      moveBy((now.x - last.x) / 2, (now.y - last.y) / 2);
      if (apart(last) > 0) zoomTo(state.zoom * apart(now) / apart(last), (now.x + other.x) / 2, (now.y + other.y) / 2);
    }
    pointers.set(event.pointerId, now);
  });
  for (const end of ["pointerup", "pointercancel", "lostpointercapture"]) {
    view.addEventListener(end, (event) => {
      pointers.delete(event.pointerId);
      // The finger that stays does not jump to something else.
      if (pointers.size > 0) holdsDivider = false;
      if (pointers.size === 0) view.classList.remove("held");
    });
  }
  view.addEventListener("wheel", (event) => {
    // Without Ctrl the page scrolls.
    if (!event.ctrlKey) return;
    event.preventDefault();
    zoomTo(state.zoom * Math.exp(-event.deltaY / 300), event.clientX, event.clientY);
  }, {passive: false});

  const step = 1.5;
  view.addEventListener("keydown", (event) => {
    if (event.altKey || event.metaKey || event.ctrlKey) return;
    const far = 0.15 * view.clientWidth;
    const moves = {ArrowLeft: [far, 0], ArrowRight: [-far, 0], ArrowUp: [0, far], ArrowDown: [0, -far]};
    const splits = {
      ArrowLeft: -2, ArrowDown: -2, ArrowRight: 2, ArrowUp: 2, PageDown: -10, PageUp: 10, Home: -100, End: 100,
    };
    if (event.shiftKey && event.key in moves) moveBy(...moves[event.key]);
    else if (event.key in splits) splitTo(state.split + splits[event.key]);
    else if (event.key === "+" || event.key === "=") zoomTo(state.zoom * step);
    else if (event.key === "-") zoomTo(state.zoom / step);
    else if (event.key === "0") zoomTo(1);
    else return;
    event.preventDefault();
  });
  find("larger").addEventListener("click", () => zoomTo(state.zoom * step));
  find("smaller").addEventListener("click", () => zoomTo(state.zoom / step));
  find("fit").addEventListener("click", () => zoomTo(1));
  find("pixels").addEventListener("click", () => zoomTo(state.sheet.scale / fitScale()));
  find("blend").addEventListener("input", (event) => {
    for (const side of [layers.left, layers.right]) side.style.opacity = String(event.target.value / 100);
  });
  choices.left.addEventListener("change", showAll);
  choices.right.addEventListener("change", choose);
  choices.part.addEventListener("change", () => {
    state.sheet = sheets.find((sheet) => sheet.title === choices.part.value && sheet.pictures.has(choices.right.value));
    Object.assign(state, {zoom: 1, x: 0.5, y: 0.5});
    showAll();
  });

  const fused = new Map();
  for (const sheet of sheets) {
    for (const [name, {label}] of sheet.pictures) {
      if (name !== "pan" && name !== "ms") fused.set(name, label);
    }
  }
  fill(choices.right, [...fused], [...fused.keys()][0]);
  choose();
  addEventListener("resize", showAll);
})();
