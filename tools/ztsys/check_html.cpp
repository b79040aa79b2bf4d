// SPDX-License-Identifier: Apache-2.0
#include "tools/ztsys/check_html.h"

#include <array>
#include <cstdio>

#include "source/support/ZTprintable.h"

namespace ztsys {

namespace {

// A state is told by its letter, its word and its colour; the colours differ in brightness, too.
struct StateLook {
  const char* letter;
  const char* word;
};
constexpr std::array<StateLook, kPageStates> kStates = {{
    {"F", "failed"},
    {"A", "not available"},
    {"H", "no Halvex"},
    {"O", "not supported"},
    {"S", "succeeded"},
}};

// Classes: s0 to s4 for the states, g the grid. A hundred rows, or a part of the grid, are laid out
// by themselves when they come into view, which a table's own layout does not allow: ten thousand
// rows would take many seconds.
constexpr char kHead[] = R"(<!DOCTYPE html>
<html lang="en"><meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline'">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>System check</title>
<style>
body{font:15px/1.4 system-ui,sans-serif;margin:1em auto;max-width:110em;padding:0 1em;color:#1a1a1a;background:#fff}
h1{font-size:1.4em;margin:0}
.n{display:flex;flex-wrap:wrap;gap:.5em;margin:.8em 0}
.n label{border:1px solid #888;border-radius:.3em;padding:.2em .6em;cursor:pointer}
.g{margin:.8em 0;max-height:40vh;overflow:auto}
.g div{display:flex;flex-wrap:wrap;gap:2px;margin-bottom:2px;content-visibility:auto;contain-intrinsic-size:auto 12em}
.g a{width:1.3em;height:1.3em;font:bold 12px/1.3em monospace;text-align:center;text-decoration:none;border-radius:2px}
b.k{display:inline-block;width:1.3em;text-align:center;border-radius:2px}
.s0{background:#8c1a11;color:#fff}.s1{background:#4d4d4d;color:#fff}.s2{background:#e08a00;color:#000}
.s3{background:#9fc5e8;color:#000}.s4{background:#d9f2e3;color:#14532d}
input[type=search]{font:inherit;width:24em;max-width:100%;padding:.3em}
div.t{overflow-x:auto}
table,thead,tbody{display:block}table{min-width:60em}
tr{display:grid;grid-template-columns:16% 9em 9% 10em 1fr 4em;border-bottom:1px solid #ddd}
tbody{content-visibility:auto;contain-intrinsic-size:auto 340em}
th,td{text-align:left;padding:.25em .5em;overflow-wrap:anywhere;unicode-bidi:isolate}
th button{font:inherit;font-weight:bold;border:0;background:none;padding:0;cursor:pointer}
th[aria-sort=ascending] button::after{content:" \25B2"}th[aria-sort=descending] button::after{content:" \25BC"}
tr:target{outline:2px solid #1a56db}
i{color:#444}
@media(prefers-color-scheme:dark){body{background:#161616;color:#eee}th button,i{color:#ddd}tr{border-color:#444}}
[hidden]{display:none!important}
@media(max-width:50em){table{min-width:0}tr{display:block;padding:.3em 0}thead tr{display:flex;flex-wrap:wrap}
td{display:block;padding:0 .5em}td:first-child{font-weight:bold}td:empty{display:none}td:last-child::after{content:" ms"}}
@media print{.g,.q{display:none}}
</style>
)";

constexpr char kTableHead[] =
    R"(<p class="q" hidden><input type="search" id="q" placeholder="Filter by any word" aria-label="Filter"> <span id="c"></span>
<div class="t"><table><thead><tr><th>System<th>Address<th>Group<th>State<th>What happened, and what to try<th>ms</thead>
)";

constexpr char kScript[] = R"(</table></div>
<script>
"use strict";
const table=document.querySelector("table"),rows=[...document.querySelectorAll("tbody tr")],cells=[...document.querySelectorAll(".g a")];
const boxes=[...document.querySelectorAll(".n input")],query=document.getElementById("q"),count=document.getElementById("c");
let texts,order=rows.map((r,i)=>i);
const address=t=>t.split(".").reduce((n,o)=>n*256+ +o,0);
const keys=[t=>t.toLowerCase(),address,t=>t.toLowerCase(),null,t=>t.toLowerCase(),Number];
function show(){
  texts??=rows.map(r=>r.textContent.toLowerCase());
  const words=query.value.toLowerCase().split(/\s+/).filter(w=>w);let n=0;
  rows.forEach((r,i)=>{const on=boxes[+r.className[1]].checked&&words.every(w=>texts[i].includes(w));
    cells[i].hidden=!on;n+=on;});
  put();tell(n);
}
function put(){
  const shown=order.filter(i=>!cells[i].hidden).map(i=>rows[i]);
  [...table.tBodies].forEach(b=>b.remove());
  for(let i=0;i<shown.length;i+=100)table.createTBody().append(...shown.slice(i,i+100));
}
function tell(n){count.textContent=n+" of "+rows.length+" systems"}
document.querySelectorAll("th").forEach((th,column)=>{
  const button=document.createElement("button");button.textContent=th.textContent;th.replaceChildren(button);
  button.onclick=()=>{
    const down=th.getAttribute("aria-sort")==="ascending";
    document.querySelectorAll("th").forEach(t=>t.removeAttribute("aria-sort"));
    th.setAttribute("aria-sort",down?"descending":"ascending");
    const key=r=>column===3?+r.className[1]:keys[column](r.cells[column].textContent);
    const keyed=rows.map((r,i)=>[key(r),i]);
    keyed.sort((a,b)=>(a[0]<b[0]?-1:a[0]>b[0]?1:0)*(down?-1:1)||a[1]-b[1]);
    order=keyed.map(k=>k[1]);put();
  };
});
let wait;query.oninput=()=>{clearTimeout(wait);wait=setTimeout(show,80)};
boxes.forEach(b=>{b.hidden=false;b.onchange=show});
document.querySelector(".q").hidden=false;tell(rows.length);
</script>
)";

// Turns the direction of what follows, out of the text itself: U+202A to 202E, U+2066 to 2069.
bool turns_text(std::string_view character) {
  if (character.size() != 3 || character[0] != '\xE2')
    return false;
  const auto low_bits = [&](std::size_t i) { return static_cast<unsigned>(character[i]) & 0x3F; };
  const unsigned point = 0x2000 | low_bits(1) << 6 | low_bits(2);
  return (point >= 0x202A && point <= 0x202E) || (point >= 0x2066 && point <= 0x2069);
}

// As it is shown: markup and quotes are text, and what is no UTF-8 or would not stay in its place
// is U+FFFD.
void append_text(std::string& page, std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = utf8_length(text);
    const std::string_view character = text.substr(0, length);
    if (length == 0 || printable(character) != character || turns_text(character))
      page += "\xEF\xBF\xBD";
    else if (character == "&")
      page += "&amp;";
    else if (character == "<")
      page += "&lt;";
    else if (character == ">")
      page += "&gt;";
    else if (character == "\"")
      page += "&quot;";
    else
      page += character;
    text.remove_prefix(length == 0 ? 1 : length);
  }
}

std::string number(const char* format, double value) {
  char text[32];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

std::string time_text(std::time_t time) {
  std::tm parts{};
  char text[40] = "";
  if (localtime_r(&time, &parts) != nullptr)
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %z", &parts);
  return text;
}

std::size_t index_of(const PageSystem& system) {
  return static_cast<std::size_t>(system.state);
}

void append_counts(std::string& page, std::span<const PageSystem> systems) {
  std::array<std::size_t, kPageStates> counts{};
  for (const PageSystem& system : systems)
    ++counts[index_of(system)];
  page += "<div class=\"n\">";
  for (std::size_t i = 0; i < kPageStates; ++i)
    page += "<label><input type=\"checkbox\" checked hidden> <b class=\"k s" + std::to_string(i) +
            "\">" + kStates[i].letter + "</b> " + std::to_string(counts[i]) + ' ' +
            kStates[i].word + "</label>";
  page += "</div>\n";
}

void append_grid(std::string& page, std::span<const PageSystem> systems) {
  constexpr std::size_t kPart = 500;
  page += "<div class=\"g\" aria-label=\"All systems\"><div>";
  for (std::size_t i = 0; i < systems.size(); ++i) {
    if (i > 0 && i % kPart == 0)
      page += "</div><div>";
    const std::size_t state = index_of(systems[i]);
    page += "<a class=s" + std::to_string(state) + " href=#r" + std::to_string(i) + " title=\"";
    append_text(page, systems[i].name);
    page += std::string("\">") + kStates[state].letter + "</a>";
  }
  page += "</div></div>\n";
}

void append_row(std::string& page, const PageSystem& system, std::size_t i) {
  constexpr std::size_t kPart = 100;
  const std::size_t state = index_of(system);
  if (i % kPart == 0)
    page += "<tbody>\n";
  page += "<tr id=r" + std::to_string(i) + " class=r" + std::to_string(state);
  for (const std::string* text : {&system.name, &system.address, &system.group}) {
    page += text == &system.name ? "><td>" : "<td>";
    append_text(page, *text);
  }
  page += "<td><b class=\"k s" + std::to_string(state) + "\">" + kStates[state].letter + "</b> " +
          kStates[state].word + "<td>";
  if (system.state != PageState::succeeded) {
    append_text(page, system.link + ' ' + system.cause + ": ");
    append_text(page, system.text);
    page += " <i>";
    append_text(page, system.advice);
    page += "</i>";
  }
  page += "<td>" + number("%.0f", system.milliseconds) + '\n';
}

}  // namespace

std::string CheckPage(std::span<const PageSystem> systems, std::time_t began, double seconds) {
  constexpr std::size_t kUsualRow = 400;
  std::string page = kHead;
  page.reserve(page.size() + sizeof kScript + kUsualRow * systems.size());
  page += "<h1>" + std::to_string(systems.size()) + (systems.size() == 1 ? " system" : " systems") +
          " checked</h1>\n<div>" + time_text(began) + ", in " + number("%.1f", seconds) +
          " s</div>\n";
  append_counts(page, systems);
  append_grid(page, systems);
  page += kTableHead;
  for (std::size_t i = 0; i < systems.size(); ++i)
    append_row(page, systems[i], i);
  return page + kScript;
}

}  // namespace ztsys
