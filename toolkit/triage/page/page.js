// Sorting, filtering and links of the triage page. Without it the page can be read in full.
"use strict";

(() => {
  const table = document.getElementById("groups");
  if (!table) return;

  const byId = (id) => document.getElementById(id);
  const controls = { find: byId("find"), build: byId("build"), system: byId("system"), marked: byId("marked") };

  // In the order of the ranks.
  const groups = Array.from(table.tBodies, (body, rank) => ({
    body,
    rank,
    row: body.rows[0],
    details: body.rows[1].cells[0].firstElementChild,
    count: Number(body.dataset.count),
    trend: Number(body.dataset.trend),
    first: Number(body.dataset.first),
    last: Number(body.dataset.last),
    builds: new Set(body.dataset.builds.split(" ")),
    systems: new Set(body.dataset.systems.split(" ")),
    text: null,
  }));
  const groupOf = new Map(groups.map((group) => [group.body, group]));

  const isShown = (group) => !group.body.hidden;
  const summaryOf = (group) => group.details.firstElementChild;

  // Sorting

  const collator = new Intl.Collator("en", { numeric: true });
  const byText = (name) => {
    const texts = new Map(groups.map((group) => [group, group.row.querySelector("." + name).textContent]));
    return (a, b) => collator.compare(texts.get(a), texts.get(b));
  };
  const byNumber = (name) => (a, b) => a[name] - b[name];
  // Each order upwards; `down`: the first click sorts downwards, as one looks for the largest.
  const orders = {
    rank: { make: () => byNumber("rank") },
    count: { make: () => byNumber("count"), down: true },
    share: { make: () => byNumber("count"), down: true },
    trend: { make: () => byNumber("trend"), down: true },
    signature: { make: () => byText("signature") },
    class: { make: () => byText("class") },
    first: { make: () => byNumber("first"), down: true },
    last: { make: () => byNumber("last"), down: true },
    systems: { make: () => byText("systems") },
  };

  function sort(header) {
    const order = orders[header.dataset.key];
    const before = header.getAttribute("aria-sort");
    const isDown = before ? before === "ascending" : Boolean(order.down);
    for (const other of table.tHead.rows[0].cells) other.removeAttribute("aria-sort");
    header.setAttribute("aria-sort", isDown ? "descending" : "ascending");
    const compare = order.make();
    const sorted = groups.slice().sort((a, b) => (isDown ? compare(b, a) : compare(a, b)) || a.rank - b.rank);
    const bodies = document.createDocumentFragment();
    for (const group of sorted) bodies.append(group.body);
    table.insertBefore(bodies, table.tFoot);
  }

  for (const header of table.tHead.rows[0].cells) {
    const button = document.createElement("button");
    button.type = "button";
    button.append(...header.childNodes);
    button.addEventListener("click", () => sort(header));
    header.append(button);
  }
  table.tHead.rows[0].cells[0].setAttribute("aria-sort", "ascending");

  // Filtering

  // What can be found of a group: its row, its stack, its id and its reports; not the page's own words.
  function textOf(group) {
    if (group.text === null) {
      const parts = group.body.querySelectorAll("code, .s, .v ol, .id, .p, .class, .r li");
      group.text = Array.from(parts, (part) => part.textContent).join("\n").toLowerCase();
    }
    return group.text;
  }

  function filter() {
    const words = controls.find.value.toLowerCase().split(/\s+/).filter(Boolean);
    const { build, system, marked } = controls;
    let shown = 0;
    let reports = 0;
    for (const group of groups) {
      const fits =
        (!build.value || group.builds.has(build.value)) &&
        (!system.value || group.systems.has(system.value)) &&
        (!marked.value || Array.from(group.row.querySelectorAll(".m"), (m) => m.textContent).includes(marked.value)) &&
        words.every((word) => textOf(group).includes(word));
      group.body.hidden = !fits;
      if (!fits) continue;
      ++shown;
      reports += group.count;
    }
    const isFiltered = Object.values(controls).some((control) => control.value.trim());
    const counted = (number, one, many) => number.toLocaleString("en") + " " + (number === 1 ? one : many);
    byId("found").textContent = isFiltered
      ? `${counted(shown, "group", "groups")} of ${groups.length.toLocaleString("en")}, ` +
        counted(reports, "report", "reports")
      : "";
    byId("clear").hidden = !isFiltered;
    byId("none").hidden = shown !== 0;
    if (table.tFoot) table.tFoot.hidden = isFiltered;
  }

  function showAll() {
    for (const control of Object.values(controls)) control.value = "";
    filter();
  }

  let waiting = 0;
  controls.find.addEventListener("input", () => {
    clearTimeout(waiting);
    waiting = setTimeout(filter, 120);
  });
  for (const control of [controls.build, controls.system, controls.marked]) control.addEventListener("change", filter);
  byId("clear").addEventListener("click", () => {
    showAll();
    controls.find.focus();
  });

  // Opening

  table.addEventListener("click", (event) => {
    const row = event.target.closest("tbody > tr:first-child");
    const group = row && groupOf.get(row.parentNode);
    if (!group || group.row !== row || event.target.closest("a, button") || !getSelection().isCollapsed) return;
    group.details.open = !group.details.open;
  });

  function openLinked() {
    let id = location.hash.slice(1);
    try {
      id = decodeURIComponent(id);
    } catch {
      // An address that nobody has made from an id.
    }
    const target = id && byId(id);
    const body = target && target.closest("#groups > tbody");
    if (!body) return;
    const group = groupOf.get(body);
    if (!isShown(group)) showAll();
    group.details.open = true;
    body.scrollIntoView();
    summaryOf(group).focus({ preventScroll: true });
  }
  addEventListener("hashchange", openLinked);
  // A link to the group that the address names already changes no address.
  table.addEventListener("click", (event) => {
    const link = event.target.closest("a[href^='#']");
    if (link && link.getAttribute("href") === location.hash) openLinked();
  });

  // Keyboard

  function step(body, next) {
    do body = body && body[next];
    while (body && (body.localName !== "tbody" || body.hidden));
    if (body) summaryOf(groupOf.get(body)).focus();
  }

  addEventListener("keydown", (event) => {
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    const isTyping = event.target.matches("input, select, textarea");
    if (event.key === "/" && !isTyping) {
      controls.find.focus();
      controls.find.select();
    } else if (event.key === "Escape" && (!isTyping || event.target === controls.find)) {
      showAll();
    } else if (event.key === "ArrowDown" && event.target === controls.find) {
      const first = Array.from(table.tBodies).find((body) => !body.hidden);
      if (first) summaryOf(groupOf.get(first)).focus();
    } else if ((event.key === "ArrowDown" || event.key === "ArrowUp") && event.target.matches("#groups > tbody > tr > td > details > summary")) {
      step(event.target.closest("#groups > tbody"), event.key === "ArrowDown" ? "nextElementSibling" : "previousElementSibling");
    } else {
      return;
    }
    event.preventDefault();
  });

  document.documentElement.classList.add("js");
  byId("filters").hidden = false;
  byId("keys").hidden = false;
  // A browser that comes back to the page may have kept what was chosen.
  filter();
  openLinked();
})();
