"use strict";
// The gallery's cards, built from the data kiv put in the page. Sorting and filtering only
// reorder and hide them; every figure was computed by kiv.

const MISSING = "\u2014";

function readGallery() {
  return JSON.parse(document.getElementById("gallery-data").textContent);
}

// A path of the site as a link: each part escaped, so that names with spaces, '#' or '?' resolve.
function linkTo(path) {
  return path.split("/").map(encodeURIComponent).join("/");
}

function figureText(value, unit) {
  if (value === null || value === undefined) {
    return MISSING;
  }
  return Number(value).toPrecision(4) + (unit ? " " + unit : "");
}

function element(tag, className, text) {
  const node = document.createElement(tag);
  if (className) {
    node.className = className;
  }
  if (text !== undefined) {
    node.textContent = text;
  }
  return node;
}

function addFact(list, label, value) {
  list.append(element("dt", null, label), element("dd", null, value || MISSING));
}

function dateText(card) {
  return [card.date, card.time].filter(Boolean).join(" ");
}

function cardElement(card) {
  const article = element("article", "card");
  article.dataset.path = card.path;
  const preview = element("a", "preview");
  preview.href = linkTo(card.page);
  const image = element("img");
  image.src = linkTo(card.preview);
  image.alt = "Preview of " + card.path;
  image.loading = "lazy";
  preview.append(image);
  const title = element("h2");
  const titleLink = element("a", null, card.title);
  titleLink.href = linkTo(card.page);
  title.append(titleLink);
  const facts = element("dl", "facts");
  addFact(facts, "Channel", card.channel);
  addFact(facts, "Date", dateText(card));
  addFact(facts, "Scan size", card.scanSize);
  addFact(facts, "Resolution", card.resolution);
  if (card.kind === "image") {
    addFact(facts, "Sa", figureText(card.Sa, card.zUnit));
    addFact(facts, "Sq", figureText(card.Sq, card.zUnit));
  }
  article.append(preview, title, element("p", "path", card.path), facts);
  return article;
}

// Everything a user may type to find a card: the facts it shows and every header value.
function searchText(card) {
  const values = [card.path, card.title, card.channel, dateText(card), card.scanSize,
                  card.resolution];
  for (const [, value] of card.header) {
    values.push(value);
  }
  return values.filter(Boolean).join("\n").toLowerCase();
}

function matches(entry, query) {
  return query === "" || entry.search.includes(query);
}

// Each order's key and direction; a card without the key goes last.
const ORDERS = {
  date: { key: (card) => dateText(card) || null, descending: true },
  name: { key: (card) => card.path, descending: false },
  size: { key: (card) => card.area, descending: false },
  sq: { key: (card) => card.Sq, descending: false },
};

function compareBy(order) {
  return (a, b) => {
    const x = order.key(a.card);
    const y = order.key(b.card);
    if (x === null || x === undefined || y === null || y === undefined) {
      return (x === null || x === undefined) - (y === null || y === undefined);
    }
    const difference = typeof x === "number" ? x - y : String(x).localeCompare(String(y));
    return (order.descending ? -difference : difference) || a.card.path.localeCompare(b.card.path);
  };
}

function showFailures(failures) {
  const list = document.getElementById("failure-list");
  for (const failure of failures) {
    const item = element("li");
    item.append(element("code", null, failure.path), ": " + failure.reason);
    list.append(item);
  }
  document.getElementById("failures").hidden = failures.length === 0;
}

function render(entries) {
  const query = document.getElementById("filter").value.trim().toLowerCase();
  const order = ORDERS[document.getElementById("sort").value] || ORDERS.date;
  const shown = entries.filter((entry) => matches(entry, query)).sort(compareBy(order));
  document.getElementById("cards").replaceChildren(...shown.map((entry) => entry.node));
  document.getElementById("empty").hidden = shown.length > 0 || entries.length === 0;
  const count = document.getElementById("count");
  count.textContent = shown.length === entries.length
    ? entries.length + (entries.length === 1 ? " scan" : " scans")
    : shown.length + " of " + entries.length + " scans";
}

function start() {
  const gallery = readGallery();
  const entries = gallery.cards.map((card) => ({
    card,
    node: cardElement(card),
    search: searchText(card),
  }));
  showFailures(gallery.failures);
  document.getElementById("filter").addEventListener("input", () => render(entries));
  document.getElementById("sort").addEventListener("change", () => render(entries));
  render(entries);
}

start();
