// The style and the script of the lecture's web page, inlined into it so that
// the page needs no network and no other file than the media, the chapters
// and the slide pictures.
//
// The script reads the chapters file named by the body's data-chapters (the
// Podcasting 2.0 JSON beside the page) and, when the browser refuses that
// fetch (a page opened from disk), the copy in #chapters-data. It marks the
// body with data-chapters-from="file" or "page" once the list is built.
// A "?t=SECONDS" in the page's address starts there.
#pragma once

namespace quillora::publish {

inline constexpr const char* kWebPageStyle = R"css(
:root { color-scheme: light dark; --accent: #0b57d0; --focus: #e37400; }
body { font-family: system-ui, sans-serif; line-height: 1.4; max-width: 80rem; margin: 0 auto; padding: 1rem; }
h1 { font-size: 1.6rem; margin: 0 0 .5rem; }
.tags { display: flex; flex-wrap: wrap; gap: .25rem 1.5rem; margin: 0 0 1rem; }
.tags div { display: flex; gap: .4rem; }
.tags dt { font-weight: 600; }
.tags dd { margin: 0; }
main { display: grid; gap: 1rem; grid-template-columns: minmax(0, 3fr) minmax(14rem, 1fr); align-items: start; }
@media (max-width: 48rem) { main { grid-template-columns: minmax(0, 1fr); } }
figure { margin: .75rem 0 0; }
#slide { display: block; width: 100%; max-height: 75vh; object-fit: contain; background: #000; }
#slide[hidden] { display: none; }
figcaption { font-size: 1.25rem; margin: .5rem 0; }
audio { display: block; width: 100%; }
#chapters { list-style: none; margin: 0; padding: 0; max-height: 85vh; overflow-y: auto; }
#chapters button { display: block; width: 100%; text-align: start; font: inherit; color: inherit; cursor: pointer;
  background: transparent; border: 1px solid #8888; border-radius: .4rem; padding: .5rem; margin: 0 0 .3rem; }
#chapters button[aria-current] { background: var(--accent); border-color: var(--accent); color: #fff; font-weight: 600; }
.time { font-variant-numeric: tabular-nums; opacity: .85; margin-inline-end: .5rem; }
button:focus-visible, a:focus-visible, audio:focus-visible { outline: 3px solid var(--focus); outline-offset: 2px; }
)css";

inline constexpr const char* kWebPageScript = R"js(
"use strict";
(function () {
  var page = document.body;
  var audio = document.getElementById("player");
  var slide = document.getElementById("slide");
  var caption = document.getElementById("slide-title");
  var linkBox = document.getElementById("slide-link");
  var link = linkBox.querySelector("a");
  var list = document.getElementById("chapters");
  var source = new URL(page.dataset.chapters, location.href);
  var chapters = [];
  var buttons = [];
  var current = null;
  var requested = Number.parseFloat(new URLSearchParams(location.search).get("t"));
  // Until the player has reached the asked-for start, its own time is stale.
  var pendingStart = Number.isFinite(requested) && requested >= 0 ? requested : null;

  function address(reference, schemes) {
    try {
      var url = new URL(reference, source);
      return !schemes || schemes.indexOf(url.protocol) >= 0 ? url.href : null;
    } catch (error) {
      return null;
    }
  }

  function clock(seconds) {
    var whole = Math.floor(seconds);
    var text = String(Math.floor(whole / 60) % 60).padStart(2, "0") + ":" + String(whole % 60).padStart(2, "0");
    return whole >= 3600 ? Math.floor(whole / 3600) + ":" + text : text;
  }

  function indexAt(time) {
    var found = -1;
    for (var i = 0; i < chapters.length && chapters[i].startTime <= time + 0.0005; i++) found = i;
    return found;
  }

  function show(index) {
    if (index === current) return;
    current = index;
    buttons.forEach(function (button) {
      if (Number(button.dataset.index) === index) button.setAttribute("aria-current", "true");
      else button.removeAttribute("aria-current");
    });
    var chapter = chapters[index];
    var picture = chapter && chapter.img ? address(chapter.img) : null;
    slide.hidden = !picture;
    slide.alt = chapter && chapter.title ? chapter.title : "";
    if (picture) slide.src = picture;
    else slide.removeAttribute("src");
    caption.textContent = chapter && chapter.title ? chapter.title : "";
    var target = chapter && chapter.url ? address(chapter.url, ["http:", "https:", "mailto:"]) : null;
    linkBox.hidden = !target;
    if (target) {
      link.href = target;
      link.textContent = chapter.url;
    } else {
      link.removeAttribute("href");
      link.textContent = "";
    }
  }

  function seek(time) {
    pendingStart = null;
    show(indexAt(time));
    try {
      audio.currentTime = time;
    } catch (error) {
      // A player without media keeps its place; the slide has moved all the same.
    }
  }

  function playerMoved() {
    if (pendingStart !== null) {
      if (Math.abs(audio.currentTime - pendingStart) > 0.5) return;
      pendingStart = null;
    }
    show(indexAt(audio.currentTime));
  }

  function build(data, from) {
    chapters = (data && Array.isArray(data.chapters) ? data.chapters : [])
      .filter(function (chapter) { return chapter && typeof chapter.startTime === "number"; })
      .sort(function (a, b) { return a.startTime - b.startTime; });
    list.textContent = "";
    buttons = [];
    chapters.forEach(function (chapter, index) {
      if (chapter.toc === false) return;
      var item = document.createElement("li");
      var button = document.createElement("button");
      button.type = "button";
      button.dataset.index = String(index);
      var time = document.createElement("span");
      time.className = "time";
      time.textContent = clock(chapter.startTime);
      var title = document.createElement("span");
      title.textContent = chapter.title || "Chapter " + (index + 1);
      button.append(time, title);
      button.addEventListener("click", function () {
        seek(chapter.startTime);
        var playing = audio.play();
        if (playing) playing.catch(function () {});
      });
      item.append(button);
      list.append(item);
      buttons.push(button);
    });
    current = null;
    show(indexAt(pendingStart !== null ? pendingStart : audio.currentTime));
    page.dataset.chaptersFrom = from;
  }

  function copyInPage() {
    return JSON.parse(document.getElementById("chapters-data").textContent);
  }

  function startWhereAsked() {
    if (pendingStart === null) return;
    try {
      audio.currentTime = pendingStart;
    } catch (error) {
      pendingStart = null;
    }
  }

  audio.addEventListener("timeupdate", playerMoved);
  audio.addEventListener("seeked", playerMoved);
  audio.addEventListener("loadedmetadata", startWhereAsked);
  startWhereAsked();
  fetch(source)
    .then(function (response) {
      if (!response.ok) throw new Error(String(response.status));
      return response.json();
    })
    .then(function (data) { build(data, "file"); })
    .catch(function () { build(copyInPage(), "page"); })
    .catch(function () { caption.textContent = "The chapters could not be read."; });
})();
)js";

}  // namespace quillora::publish
