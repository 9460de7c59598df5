#include "html_page.h"

namespace krxpatch {

const char* const htmlStyle = R"css(
:root { color-scheme: light dark; --ground: #f6f7f9; --card: #fff; --ink: #1b2330; --soft: #5b6678; --line: #dce1e8;
  --accent: #1f5fbf; --add: #11703a; --add-ground: #e4f5ea; --cut: #a3261d; --cut-ground: #fdeae8; --edit: #8a5a00;
  --edit-ground: #fdf3dc; }
@media (prefers-color-scheme: dark) { :root { --ground: #12161c; --card: #1b2129; --ink: #e4e9f0; --soft: #9aa6b6;
  --line: #303946; --accent: #7fb0ff; --add: #7ddba0; --add-ground: #16301f; --cut: #ff9d94; --cut-ground: #3a1b19;
  --edit: #f0c674; --edit-ground: #352a12; } }
* { box-sizing: border-box; }
body { margin: 0; background: var(--ground); color: var(--ink); font: 15px/1.5 system-ui, sans-serif; }
main { max-width: 68rem; margin: 0 auto; padding: 1rem; }
h1 { margin: .5rem 0 .25rem; font-size: 1.5rem; line-height: 1.25; }
h2 { margin: 1.75rem 0 .5rem; font-size: 1.15rem; }
h3 { margin: 1rem 0 .35rem; font-size: .8rem; letter-spacing: .05em; text-transform: uppercase; color: var(--soft); }
a { color: var(--accent); }
code, .value { font: .87em/1.45 ui-monospace, Menlo, Consolas, monospace; overflow-wrap: anywhere; }
.where { margin: 0; color: var(--soft); overflow-wrap: anywhere; }
.verdict { margin: 1rem 0; padding: .75rem 1rem; border-left: .35rem solid var(--accent); border-radius: .35rem;
  background: var(--card); font-size: 1.05rem; overflow-wrap: anywhere; }
.verdict.bad { border-color: var(--cut); } .verdict.pending { border-color: var(--edit); }
.tools { position: sticky; top: 0; z-index: 1; display: flex; flex-wrap: wrap; gap: .5rem; padding: .6rem 0;
  background: var(--ground); }
.tools input { flex: 1 1 14rem; min-width: 0; padding: .5rem .7rem; border: 1px solid var(--line); border-radius: .4rem;
  background: var(--card); color: inherit; font: inherit; }
.tools button { padding: .5rem .8rem; border: 1px solid var(--line); border-radius: .4rem; background: var(--card);
  color: inherit; font: inherit; cursor: pointer; }
#count { flex-basis: 100%; min-height: 1.4em; color: var(--soft); font-size: .87rem; }
nav ul { display: flex; flex-wrap: wrap; gap: .3rem .9rem; margin: 0; padding: 0; list-style: none; }
details { scroll-margin-top: 7rem; }
details.database { margin: .6rem 0; border: 1px solid var(--line); border-radius: .5rem; background: var(--card); }
details.database > summary { padding: .7rem .9rem; }
details.database > div { padding: 0 .9rem .9rem; }
summary { cursor: pointer; overflow-wrap: anywhere; }
summary:focus-visible, a:focus-visible, button:focus-visible, input:focus-visible { outline: 2px solid var(--accent); }
.gist { color: var(--soft); font-size: .9rem; }
details.note { border-top: 1px solid var(--line); } details.note > summary { padding: .35rem 0; }
details.note > div { padding: 0 0 .6rem 1.1rem; }
.tag { display: inline-block; min-width: 4.6em; padding: 0 .45em; border-radius: .25rem; font-size: .8rem;
  text-align: center; }
.added { color: var(--add); background: var(--add-ground); }
.removed { color: var(--cut); background: var(--cut-ground); }
.changed { color: var(--edit); background: var(--edit-ground); }
.lost { margin: .2rem 0; padding: .25rem .6rem; border-radius: .25rem; color: var(--cut);
  background: var(--cut-ground); }
.unid { color: var(--soft); font-size: .8rem; text-decoration: none; }
table { width: 100%; border-collapse: collapse; font-size: .92rem; }
th, td { padding: .3rem .5rem; border-bottom: 1px solid var(--line); text-align: left; vertical-align: top; }
th { color: var(--soft); font-weight: 600; }
td.old { background: var(--cut-ground); } td.new { background: var(--add-ground); } td { overflow-wrap: anywhere; }
.value { white-space: pre-wrap; } .value + .value { display: block; margin-top: .15rem; }
.none { color: var(--soft); font-style: italic; }
[hidden] { display: none !important; }
@media (max-width: 40rem) {
  main { padding: .7rem; }
  .tools input { flex-basis: 100%; }
  table.items, table.items tbody, table.items tr, table.items td { display: block; width: 100%; }
  table.items thead { display: none; }
  table.items td { border: 0; border-radius: .25rem; margin: .15rem 0; }
  table.items td:first-child { padding-left: 0; font-weight: 600; }
  table.items td.old::before { content: "before "; color: var(--soft); font-size: .8rem; }
  table.items td.new::before { content: "after "; color: var(--soft); font-size: .8rem; }
}
@media print { .tools, nav { display: none; } details.database { break-inside: avoid; } }
)css";

const char* const htmlScript = R"js(
(() => {
  const query = document.getElementById('search'), count = document.getElementById('count');
  const databases = [...document.querySelectorAll('details.database')];
  const textOf = new Map();
  const holds = (element, words) => {
    if (!textOf.has(element)) { textOf.set(element, element.textContent.toLowerCase()); }
    return words.every(word => textOf.get(element).includes(word));
  };
  const search = () => {
    const words = query.value.toLowerCase().split(/\s+/).filter(word => word);
    let found = 0;
    for (const database of databases) {
      const head = holds(database.querySelector('summary'), words);
      const entries = [...database.querySelectorAll('.entry')];
      let any = false;
      for (const entry of entries) {
        const shown = head || holds(entry, words);
        entry.hidden = !shown;
        any = any || shown;
        found += words.length && holds(entry, words) ? 1 : 0;
      }
      database.hidden = !head && !any;
      database.open = words.length > 0 && any;
    }
    count.textContent = words.length ? found + (found === 1 ? ' match' : ' matches') : '';
  };
  query.addEventListener('input', search);
  document.getElementById('open').addEventListener('click', () => databases.forEach(each => each.open = true));
  document.getElementById('fold').addEventListener('click',
    () => document.querySelectorAll('details').forEach(each => each.open = false));
  const follow = () => {
    const target = document.getElementById(decodeURIComponent(location.hash.slice(1)));
    if (!target) { return; }
    if (query.value) { query.value = ''; search(); }
    for (let each = target; each; each = each.parentElement) {
      if (each.tagName === 'DETAILS') { each.open = true; }
    }
    target.scrollIntoView();
  };
  addEventListener('hashchange', follow);
  follow();
})();
)js";

} // namespace krxpatch
