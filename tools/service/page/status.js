"use strict";
const every_ms = 2000;
const patience_ms = 5000;
const typing_ms = 150;
const by_id = id => document.getElementById(id);

// Data from outside is inserted as text, never as markup.
function make(tag, kind, ...content) {
  const node = document.createElement(tag);
  if (kind) node.className = kind;
  node.append(...content.map(item => item instanceof Node ? item : String(item)));
  return node;
}

function with_attributes(node, attributes) {
  for (const [name, value] of Object.entries(attributes)) node.setAttribute(name, value);
  return node;
}

const counted = (number, one, many) => `${number.toLocaleString("en")} ${number === 1 ? one : many}`;

function size_text(bytes) {
  const units = ["B", "KiB", "MiB", "GiB", "TiB"];
  let unit = 0;
  for (; bytes >= 1024 && unit + 1 < units.length; ++unit) bytes /= 1024;
  return `${unit === 0 ? bytes : bytes.toFixed(1)} ${units[unit]}`;
}

const size_node = (tag, kind, bytes) =>
  with_attributes(make(tag, kind, size_text(bytes)), {title: counted(bytes, "byte", "bytes")});

function span_text(seconds) {
  const pieces = [[86400, "d"], [3600, "h"], [60, "min"], [1, "s"]]
    .map(([length, unit], at, all) => [Math.floor((at ? seconds % all[at - 1][0] : seconds) / length), unit]);
  const first = pieces.findIndex(([count]) => count > 0);
  return first < 0 ? "0 s" : pieces.slice(first, first + 2).map(piece => piece.join(" ")).join(" ");
}

const duration_text = us => us < 1e6 ? `${(us / 1000).toFixed(us < 1e5 ? 1 : 0)} ms` : `${(us / 1e6).toFixed(1)} s`;

// Every time is in UTC: 2026-11-23 04:05:06 UTC.
const time_node = iso => with_attributes(make("time", "", iso.replace("T", " ").replace(/(\.\d+)?Z$/, " UTC")),
  {datetime: iso, title: new Date(iso).toString()});

const fact = (name, value) => make("div", "", make("dt", "", name), make("dd", "text", value));

function put_text(id, text) {
  const node = by_id(id);
  if (node.textContent !== text) node.textContent = text;
}

// Nodes with unchanged data stay, so that they keep focus and selection.
const shown = new Map();
function changed(name, data) {
  const text = JSON.stringify(data);
  const differs = shown.get(name) !== text;
  shown.set(name, text);
  return differs;
}

// The current view. It is part of the address, so that it survives a reload and can be shared.
const defaults = {filter: "", state: "all", fetch: "all", page: "1", size: "50"};
const wanted = {...defaults, ...Object.fromEntries(
  [...new URLSearchParams(location.search)].filter(([name]) => name in defaults))};
const shows_requests = () => location.hash === "#requests";
const key_of = element => `${element.subsys} ${element.index}`;

function wanted_query() {
  return new URLSearchParams(Object.entries(wanted).filter(([name, value]) => value !== defaults[name])).toString();
}

function status_address() {
  return shows_requests() ? "status.json?size=1" : `status.json?requests=0&${wanted_query()}`;
}

function show_service(service) {
  const host = service.host.includes(":") ? `[${service.host}]` : service.host;
  by_id("service").replaceChildren(
    fact("Listening on", make("span", "mono", `${host}:${service.port}`)),
    fact("Folder", make("span", "mono", service.publication)),
    fact("Up for", with_attributes(make("span"), {id: "uptime"})),
    fact("Started", time_node(service.started)));
}

const fetch_words = {up_to_date: ["up to date", "good"], older: ["has an older one", "warn"],
  asked: ["asked, fetched no K", ""], never: ["never asked", ""]};
const state_words = {problem: ["problem", "bad"], good: ["good", "good"], unread: ["not read yet", ""]};

const mark = ([text, kind]) => make("span", `mark ${kind}`, text);
const line = (...content) => make("span", "line quiet", ...content);

function as_cells(row) {
  row.setAttribute("role", "row");
  for (const cell of row.cells) cell.setAttribute("role", cell.tagName === "TH" ? "rowheader" : "cell");
  return row;
}

function configuration_cell(element) {
  const name = element.config_id ? make("span", "mono", element.config_id)
    : element.checksum ? make("span", "mono", `K ${element.checksum.slice(0, 16)}…`) : make("span", "quiet", "not known");
  const cell = make("td", "conf", name);
  if (element.written) cell.append(line("written ", time_node(element.written)));
  if (element.firmware) cell.lastChild.append(" · ", make("span", "text", `firmware ${element.firmware}`));
  return cell;
}

function fetch_cell({fetch}) {
  const cell = make("td", "fetched", mark(fetch_words[fetch.state]));
  const time = fetch.k_sent ?? fetch.checksum_sent;
  if (time) cell.append(line(fetch.k_sent ? "K " : "checksum ", time_node(time)), line(make("span", "text", `from ${fetch.client}`)));
  return cell;
}

function contents_cell(element) {
  if (element.entries === null) return make("td", "number");
  return make("td", "number", make("span", "", counted(element.entries, "entry", "entries")),
    size_node("span", "quiet", element.bytes));
}

function wide_row(kind, ...content) {
  const cell = make("td", "", make("div", "", ...content));
  cell.colSpan = 6;
  return as_cells(make("tr", kind, cell));
}

function problem_row({problem}) {
  return wide_row("why", make("p", "reason", problem.reason), make("p", "", problem.advice),
    make("code", "mono", problem.command),
    make("p", "quiet", `An element that asks for it gets ${problem.status_name} (${problem.status}). ${problem.status_meaning}`));
}

function category_table(element) {
  const most = Math.max(...element.categories.map(category => category.entries));
  const rows = element.categories.map(category => {
    const bar = with_attributes(make("span", "bar"), {"aria-hidden": "true"});
    bar.style.width = `${100 * category.entries / most}%`;
    const name = with_attributes(make("th", "", bar, make("span", "text", category.category)), {scope: "row"});
    return make("tr", "", name, make("td", "number", category.entries.toLocaleString("en")),
      size_node("td", "number", category.bytes));
  });
  const titles = [["Category", ""], ["Entries", "number"], ["Bytes", "number"]].map(([title, kind]) =>
    with_attributes(make("th", kind, title), {scope: "col"}));
  return make("table", "categories", make("caption", "", `Entries of ${key_of(element)} by category`),
    make("thead", "", make("tr", "", ...titles)), make("tbody", "", ...rows));
}

function details_content(element) {
  const list = make("dl");
  const add = (name, value) => value && list.append(make("dt", "", name), make("dd", "text", value));
  const mono = text => text && make("span", "mono", text);
  const time = iso => iso && time_node(iso);
  add("Config ID", mono(element.config_id));
  add("Checksum of K", mono(element.checksum));
  add("Cluster", mono(element.cluster));
  add("Firmware", element.firmware);
  add("Files checked", time(element.checked));
  add("Asked for the checksum", time(element.fetch.checksum_sent));
  add("Fetched K", time(element.fetch.k_sent));
  add("Client", mono(element.fetch.client));
  if (element.fetch.state === "older") {
    add("Fetched config ID", mono(element.fetch.k_config_id));
    add("Fetched checksum", mono(element.fetch.k_checksum));
  }
  const content = [list];
  if (element.categories.length > 0) content.push(category_table(element));
  if (element.files.length > 0) {
    content.push(make("div", "faults", make("p", "", "Missing or wrong files"),
      make("ul", "", ...element.files.map(file => make("li", "", make("span", "mono", file.path), ` ${file.text}`)))));
  }
  return content;
}

const opened = new Set();
async function fill_details(body, element) {
  const query = new URLSearchParams({subsys: element.subsys, index: element.index});
  let content;
  try {
    const answer = await fetch(`element.json?${query}`, {cache: "no-store", signal: AbortSignal.timeout(patience_ms)});
    content = answer.ok ? details_content(await answer.json()) : ["This element is not published any more."];
  } catch {
    content = ["The service does not respond."];
  }
  body.querySelector(".more > td > div")?.replaceChildren(...content);
}

function set_open(body, element, open) {
  const key = key_of(element);
  open ? opened.add(key) : opened.delete(key);
  body.querySelector("button").setAttribute("aria-expanded", String(open));
  body.querySelector(".more")?.remove();
  if (!open) return;
  body.append(wide_row("more", make("p", "quiet", "Loading.")));
  fill_details(body, element);
}

function element_body(element) {
  const button = with_attributes(make("button", "", "Details"),
    {type: "button", "aria-expanded": "false", "aria-label": `Details of ${key_of(element)}`});
  const name = with_attributes(make("th", "", make("span", "quiet", element.subsys), " ", make("span", "mono name", element.index)),
    {scope: "row"});
  const body = make("tbody", element.state === "problem" ? "problem" : "",
    as_cells(make("tr", "", name, make("td", "", mark(state_words[element.state])), configuration_cell(element),
      contents_cell(element), fetch_cell(element), make("td", "open", button))));
  body.setAttribute("role", "rowgroup");
  if (element.problem) body.append(problem_row(element));
  button.addEventListener("click", () => set_open(body, element, !opened.has(key_of(element))));
  if (opened.has(key_of(element))) set_open(body, element, true);
  return body;
}

const bodies = new Map();
function show_elements(elements) {
  const next = new Map();
  for (const element of elements) {
    const key = key_of(element);
    const kept = bodies.get(key);
    const text = JSON.stringify(element);
    next.set(key, kept?.text === text ? kept : {text, body: element_body(element)});
  }
  const focused = document.activeElement?.closest?.("#elements-table tbody");
  const focus_key = [...bodies].find(([, {body}]) => body === focused)?.[0];
  bodies.clear();
  for (const [key, entry] of next) bodies.set(key, entry);
  const table = by_id("elements-table");
  const now = [...table.tBodies];
  const nodes = [...next.values()].map(entry => entry.body);
  if (now.length !== nodes.length || nodes.some((node, at) => node !== now[at])) {
    now.filter(node => !nodes.includes(node)).forEach(node => node.remove());
    table.append(...nodes);
    if (focus_key && !nodes.includes(document.activeElement?.closest?.("tbody"))) {
      bodies.get(focus_key)?.body.querySelector("button").focus();
    }
  }
  table.hidden = elements.length === 0;
}

function show_look(look) {
  by_id("look").hidden = look.complete;
  put_text("look-text", look.published === 0 ? "Reading the publication folder."
    : `${look.read.toLocaleString("en")} of ${look.published.toLocaleString("en")} read`);
  by_id("look-progress").value = look.published === 0 ? 0 : look.read / look.published;
}

function summary_text(status) {
  if (status.counts.all === 0 && wanted.filter === "") return status.look.complete ? "Nothing is published in this folder." : "";
  const {number, elements} = status.page;
  if (elements === 0) return "No element matches.";
  const first = (number - 1) * Number(wanted.size) + 1;
  return `${first.toLocaleString("en")} to ${(first + status.elements.length - 1).toLocaleString("en")} of ` +
    counted(elements, "element", "elements");
}

function show_controls({counts, page}) {
  for (const button of by_id("states").children) {
    button.setAttribute("aria-pressed", String(button.dataset.state === wanted.state));
    button.querySelector(".count").textContent = counts[button.dataset.state].toLocaleString("en");
  }
  for (const option of by_id("fetch").options) {
    const text = option.text.replace(/ \([\d,]+\)$/, "");
    option.text = option.value === "all" ? text : `${text} (${counts[option.value].toLocaleString("en")})`;
  }
  by_id("pages").hidden = page.pages === 1 && counts.all <= 25;
  by_id("previous").disabled = page.number <= 1;
  by_id("next").disabled = page.number >= page.pages;
  put_text("page-count", page.pages.toLocaleString("en"));
  by_id("page").max = page.pages;
  wanted.page = String(page.number);
  if (document.activeElement !== by_id("page")) by_id("page").value = page.number;
}

function since_text({since, forgotten}) {
  const time = since.replace("T", " ").replace("Z", " UTC");
  return `Fetches are counted since ${time}` + (forgotten > 0
    ? `; ${counted(forgotten, "element", "elements")} that asked before then ${forgotten === 1 ? "is" : "are"} forgotten.` : ".");
}

function request_row(request) {
  const level = request.status >= 500 ? "bad" : request.status >= 400 ? "warn" : "good";
  return as_cells(make("tr", "",
    make("td", "time", time_node(request.time)),
    make("td", "client", request.client),
    make("td", "method", request.method),
    make("td", "path", make("span", "mono", request.path)),
    make("td", "status number", make("span", `mark ${level}`, request.status)),
    size_node("td", "bytes number", request.bytes),
    make("td", "duration number", duration_text(request.duration_us)),
    make("td", "result", request.result)));
}

function show_requests(requests, total) {
  put_text("requests-title", total > requests.length
    ? `Last ${requests.length} of ${counted(total, "request", "requests")}` : "Last requests");
  by_id("no-requests").hidden = requests.length > 0;
  by_id("requests-table").hidden = requests.length === 0;
  if (changed("requests", requests)) by_id("request-rows").replaceChildren(...requests.map(request_row));
}

// A 304 response has no uptime, so the page counts it.
let up_since_ms = 0;
const show_uptime = () => put_text("uptime", span_text(Math.floor((performance.now() - up_since_ms) / 1000)));

function show(status) {
  up_since_ms = performance.now() - 1000 * status.service.uptime_seconds;
  const {uptime_seconds, ...service} = status.service;
  if (changed("service", service)) show_service(service);
  by_id("problem").hidden = status.problem === null;
  put_text("problem", status.problem ?? "");
  put_text("elements-count", status.look.elements.toLocaleString("en"));
  put_text("requests-count", status.requests_total.toLocaleString("en"));
  const problems = status.look.problems;
  document.title = (problems ? `${counted(problems, "problem", "problems")} - ` : "") + "zotconf service";
  if (shows_requests()) return show_requests(status.requests, status.requests_total);
  show_look(status.look);
  show_controls(status);
  put_text("summary", summary_text(status));
  show_elements(status.elements);
  put_text("since", since_text(status.fetches));
}

// A screen reader announces the state only when it changes, not every two seconds.
function tell(text, kind) {
  put_text("state", text);
  by_id("state").className = `mark ${kind}`;
  document.body.classList.toggle("stale", kind === "bad");
}

// One request at a time: a new request aborts the previous one.
let question = null;
let timer = 0;
let last = {address: "", tag: ""};
let pause = every_ms;

async function ask() {
  clearTimeout(timer);
  question?.abort();
  const mine = question = new AbortController();
  const address = status_address();
  const bell = setTimeout(() => mine.abort(), patience_ms);
  try {
    const answer = await fetch(address, {cache: "no-store",
      headers: last.address === address && last.tag ? {"If-None-Match": last.tag} : {},
      signal: mine.signal});
    await take(answer, address);
    if (up_since_ms !== 0) show_uptime();
    by_id("updated").replaceChildren("as of ", time_node(new Date().toISOString()));
    tell("The service responds.", "good");
  } catch {
    if (mine !== question) return;
    last = {address: "", tag: ""};
    pause = every_ms;
    tell("The service does not respond. This page shows its last response.", "bad");
  } finally {
    clearTimeout(bell);
  }
  if (mine === question && !document.hidden) timer = setTimeout(ask, pause);
}

async function take(answer, address) {
  by_id("refusal").hidden = answer.status !== 400;
  if (answer.status === 304) return;
  const status = await answer.json();
  if (answer.status === 400) {
    put_text("refusal", `The service rejects this request: ${status.error}.`);
    return;
  }
  if (!answer.ok) throw new Error(`status ${answer.status}`);
  show(status);
  pause = status.look.complete ? every_ms : status.look.read === 0 ? every_ms / 20 : every_ms / 4;
  last = {address, tag: answer.headers.get("ETag") ?? ""};
}

function want(changes, wait_ms = 0) {
  Object.assign(wanted, {page: "1"}, changes);
  const query = wanted_query();
  history.replaceState(null, "", `${location.pathname}${query ? `?${query}` : ""}${location.hash}`);
  clearTimeout(timer);
  timer = setTimeout(ask, wait_ms);
}

function show_view() {
  for (const name of ["elements", "requests"]) {
    const is_shown = (name === "requests") === shows_requests();
    by_id(name).hidden = !is_shown;
    is_shown ? by_id(`${name}-link`).setAttribute("aria-current", "page")
      : by_id(`${name}-link`).removeAttribute("aria-current");
  }
  ask();
}

function turn_to(page) {
  want({page: String(page)});
  by_id("elements-title").scrollIntoView({block: "nearest"});
}

by_id("filter").value = wanted.filter;
by_id("fetch").value = wanted.fetch;
by_id("size").value = wanted.size;
by_id("filter").addEventListener("input", event => want({filter: event.target.value}, typing_ms));
by_id("fetch").addEventListener("change", event => want({fetch: event.target.value}));
by_id("size").addEventListener("change", event => want({size: event.target.value}));
by_id("states").addEventListener("click", event => {
  const button = event.target.closest("button");
  if (button) want({state: button.dataset.state});
});
by_id("page").addEventListener("change", event => turn_to(Math.max(1, Math.min(event.target.max, Number(event.target.value) || 1))));
by_id("previous").addEventListener("click", () => turn_to(Number(wanted.page) - 1));
by_id("next").addEventListener("click", () => turn_to(Number(wanted.page) + 1));
addEventListener("hashchange", show_view);
document.addEventListener("visibilitychange", () => document.hidden || ask());
show_view();
