// Search over names, titles and plain words. All words of the query must be found; a name that starts with the query
// comes first. The key / goes to the box, the arrows choose, Enter opens.
"use strict";
const box = document.getElementById("search"), hits = document.getElementById("hits"), up = document.body.dataset.up;
const texts = zoriIndex.map(e => (e.t + " " + e.w + " " + e.f.join(" ")).toLowerCase());
let chosen = 0;

function rank(entry, text, words) {
  let score = 0;
  for (const word of words) {
    const at = text.indexOf(word);
    if (at < 0) return -1;
    if (entry.t.toLowerCase().includes(word)) score += 3;
    if ((" " + entry.w).toLowerCase().includes(" " + word)) score += 4;
    if (entry.f.some(name => name.toLowerCase().startsWith("zori" + word) || name.toLowerCase().startsWith(word))) score += 4;
  }
  return score;
}

function find() {
  const words = box.value.toLowerCase().split(/\s+/).filter(Boolean);
  hits.innerHTML = "";
  hits.hidden = !words.length;
  chosen = 0;
  if (!words.length) return;
  const found = zoriIndex.map((e, i) => [rank(e, texts[i], words), e]).filter(f => f[0] >= 0)
    .sort((a, b) => b[0] - a[0]).slice(0, 30);
  for (const [, e] of found) {
    const name = e.f.find(n => words.length === 1 && n.toLowerCase().includes(words[0])) || e.f[0];
    const link = document.createElement("a");
    link.href = up + e.p + (name && name !== e.f[0] ? "#" + name : "");
    link.textContent = e.t + " ";
    const small = document.createElement("small");
    small.textContent = name ? name + (e.f.length > 1 ? " and " + (e.f.length - 1) + " more" : "") : e.s;
    link.append(small);
    link.onclick = () => { hits.hidden = true; };
    hits.append(link);
  }
  if (!found.length) hits.textContent = "Nothing is called that.";
  mark();
}

function mark() {
  [...hits.children].forEach((a, i) => a.classList && a.classList.toggle("on", i === chosen));
  if (hits.children[chosen]) hits.children[chosen].scrollIntoView({block: "nearest"});
}

box.addEventListener("input", find);
document.addEventListener("keydown", e => {
  if (e.key === "/" && document.activeElement !== box) { e.preventDefault(); box.focus(); box.select(); }
  if (document.activeElement !== box) return;
  if (e.key === "Escape") { hits.hidden = true; box.blur(); }
  if (e.key === "ArrowDown" && chosen + 1 < hits.children.length) { ++chosen; mark(); e.preventDefault(); }
  if (e.key === "ArrowUp" && chosen > 0) { --chosen; mark(); e.preventDefault(); }
  if (e.key === "Enter" && hits.children[chosen]) hits.children[chosen].click();
});
const asked = new URLSearchParams(location.search).get("q");
if (asked) { box.value = asked; find(); }
