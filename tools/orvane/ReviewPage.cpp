#include "tools/orvane/ReviewPage.h"

#include <glib.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>
#include <vips/vips8>

#include "tools/orvane/CToolError.h"
#include "tools/orvane/PhotoDecoder.h"

namespace {

using Json = nlohmann::json;

const char kStyle[] = R"css(
body { font: 14px/1.4 system-ui, sans-serif; margin: 0; background: #f4f4f2; color: #222; }
header { position: sticky; top: 0; z-index: 1; background: #fff; border-bottom: 1px solid #ccc;
  padding: .5em 1em; }
header h1 { font-size: 1.2em; margin: 0 0 .3em; overflow-wrap: anywhere; }
header .tools { display: flex; flex-wrap: wrap; gap: 1em; align-items: center; }
.help { color: #666; font-size: .9em; }
.group { margin: 1em; padding: .5em 1em; background: #fff; border: 2px solid #ddd; }
.group.current { border-color: #2a6fdb; }
.group h2 { font-size: 1em; margin: 0 0 .5em; }
.row { display: flex; flex-wrap: wrap; gap: 1em; }
.photo { width: 260px; margin: 0; padding: 2px; border: 3px solid transparent; }
.photo.keep { border-color: #3a9a3a; }
.photo.move { border-color: #d08020; }
.thumbbox { width: 256px; height: 256px; display: flex; align-items: center;
  justify-content: center; background: #e8e8e8; cursor: zoom-in; }
.thumbbox img { max-width: 256px; max-height: 256px; }
.thumbbox.missing, .thumbbox.unreadable { cursor: default; color: #a00; font-weight: bold; }
.path { font-family: monospace; font-size: .85em; overflow-wrap: anywhere; }
.facts, .score { color: #555; font-size: .9em; }
.mark { font-weight: bold; }
.keep .mark { color: #3a9a3a; }
.move .mark { color: #d08020; }
.reference .mark, .missing .mark { color: #555; }
#viewer { position: fixed; inset: 0; z-index: 2; background: rgba(0, 0, 0, .9); color: #eee;
  display: flex; gap: 1em; padding: 1em; box-sizing: border-box; cursor: zoom-out; }
#viewer[hidden] { display: none; }
#viewer .pane { flex: 1 1 0; min-width: 0; display: flex; flex-direction: column; }
#viewer img { width: 100%; height: calc(100vh - 5em); object-fit: contain; }
#viewer .path { color: #eee; }
#viewer .gone { height: calc(100vh - 5em); display: flex; align-items: center;
  justify-content: center; color: #f66; font-weight: bold; }
)css";

const char kBody[] = R"html(
<header>
<h1>Duplicate photos of <span id="library"></span></h1>
<p id="counts"></p>
<div class="tools">
<label>Groups with a score up to
<input type="range" id="score" min="0" max="0.07" step="0.001" value="0.07">
<output id="scoreValue">0.070</output></label>
<button id="export" type="button">Export choices of the groups shown</button>
</div>
<p class="help">j or &darr;: next group, k or &uarr;: previous group; click a photo to see it
large; tick compare on two photos of a group to see them side by side; Esc closes. Ticked
photos stay, unticked ones are moved by
<code>orvane dups LIBRARY --apply CHOICES.json --move-to DIR</code>.</p>
</header>
<main id="groups"><noscript>This page needs JavaScript to show the groups.</noscript></main>
<div id="viewer" hidden></div>
)html";

// Only text from the data is ever shown, through textContent; no markup is built from it.
const char kScript[] = R"js(
'use strict';
const data = JSON.parse(document.getElementById('orvane-data').textContent);
const $ = id => document.getElementById(id);
function el(tag, cls, text) {
  const e = document.createElement(tag);
  if (cls) e.className = cls;
  if (text !== undefined) e.textContent = text;
  return e;
}
function bytes(n) {
  if (n >= 1e9) return (n / 1e9).toFixed(2) + ' GB';
  if (n >= 1e6) return (n / 1e6).toFixed(1) + ' MB';
  if (n >= 1e3) return (n / 1e3).toFixed(1) + ' kB';
  return n + ' bytes';
}
$('library').textContent = data.library;
document.title = 'Duplicates of ' + data.library;

// The first thumbnails are shown at once; the others get their source when they come near
// the window, so that a page of thousands of photos stays responsive.
let eager = 60;
const lazy = 'IntersectionObserver' in window ? new IntersectionObserver(entries => {
  for (const entry of entries) {
    if (!entry.isIntersecting) continue;
    entry.target.src = entry.target.dataset.src;
    lazy.unobserve(entry.target);
  }
}, {rootMargin: '1000px'}) : null;

const viewer = $('viewer');
function show(cards) {
  viewer.replaceChildren();
  for (const card of cards) {
    const pane = el('div', 'pane');
    const img = el('img');
    img.alt = card.photo.path;
    // The file may have gone since the page was written.
    img.addEventListener('error', () => img.replaceWith(el('div', 'gone', 'missing')));
    img.src = card.photo.url;
    pane.append(img, el('div', 'path', card.photo.path));
    viewer.append(pane);
  }
  viewer.hidden = false;
}
viewer.addEventListener('click', () => { viewer.hidden = true; });

const groups = data.groups.map((group, index) => {
  const section = el('section', 'group');
  section.tabIndex = -1;
  section.dataset.score = group.score;
  section.append(el('h2', null, 'Group ' + (index + 1) + ': ' + group.photos.length +
                 ' photos, score up to ' + group.score.toFixed(4)));
  const row = el('div', 'row');
  section.append(row);
  const g = {section, cards: []};
  for (const photo of group.photos) {
    const card = {photo, figure: el('figure', 'photo'), box: null, compare: null};
    const thumb = el('div', 'thumbbox');
    if (photo.missing) {
      thumb.classList.add('missing');
      thumb.textContent = 'missing';
    } else if (!photo.thumb) {
      thumb.classList.add('unreadable');
      thumb.textContent = 'cannot be shown';
    } else {
      const img = el('img', 'thumb');
      img.alt = '';
      img.width = photo.thumbWidth;
      img.height = photo.thumbHeight;
      img.dataset.src = photo.thumb;
      if (lazy && --eager < 0) lazy.observe(img); else img.src = photo.thumb;
      thumb.append(img);
      thumb.addEventListener('click', () => show([card]));
    }
    const caption = el('figcaption');
    caption.append(el('div', 'path', photo.path));
    if (photo.missing) {
      caption.append(el('div', 'facts', 'gone since it was indexed'));
    } else {
      caption.append(el('div', 'facts', (photo.width ? photo.width + ' \u00d7 ' + photo.height +
                                         ' px, ' : '') + bytes(photo.size) + ', ' + photo.mtime));
    }
    caption.append(el('div', 'score', 'score ' + photo.score.toFixed(4) + ' to its closest'));
    const mark = el('label');
    const text = el('span', 'mark');
    mark.append(text);
    caption.append(mark);
    if (photo.missing) {
      card.figure.classList.add('missing');
      text.textContent = 'missing';
    } else {
      card.box = el('input');
      card.box.type = 'checkbox';
      card.box.checked = photo.keep;
      card.box.disabled = photo.reference;
      card.box.addEventListener('change', () => { markCard(card); counts(); });
      mark.append(card.box);
      card.compare = el('input', 'compare');
      card.compare.type = 'checkbox';
      card.compare.addEventListener('change', () => compare(g));
      const pick = el('label', null, ' compare');
      pick.prepend(card.compare);
      caption.append(' ', pick);
    }
    card.text = text;
    card.figure.dataset.path = photo.path;
    card.figure.append(thumb, caption);
    row.append(card.figure);
    g.cards.push(card);
    markCard(card);
  }
  $('groups').append(section);
  return g;
});

function markCard(card) {
  if (!card.box) return;
  const state = card.photo.reference ? 'reference' : card.box.checked ? 'keep' : 'move';
  card.text.textContent = state + ' ';
  card.figure.classList.remove('keep', 'move', 'reference');
  card.figure.classList.add(state === 'reference' ? 'keep' : state);
  if (state === 'reference') card.figure.classList.add('reference');
}

// Two photos ticked for comparison in one group are shown side by side, at the same size.
function compare(group) {
  for (const other of groups) {
    if (other === group) continue;
    for (const c of other.cards) if (c.compare) c.compare.checked = false;
  }
  const chosen = group.cards.filter(c => c.compare && c.compare.checked);
  if (chosen.length < 2) return;
  for (const c of chosen) c.compare.checked = false;
  show(chosen);
}

const shown = () => groups.filter(g => !g.section.hidden);
function counts() {
  let photos = 0;
  let reclaimable = 0;
  const visible = shown();
  for (const g of visible) {
    photos += g.cards.length;
    for (const c of g.cards) if (c.box && !c.box.checked) reclaimable += c.photo.size;
  }
  const out = $('counts');
  out.dataset.groups = visible.length;
  out.dataset.photos = photos;
  out.dataset.reclaimable = reclaimable;
  out.textContent = visible.length + ' groups, ' + photos + ' photos, ' + bytes(reclaimable) +
      ' reclaimable by moving the unticked photos' +
      (visible.length < groups.length ? ' (' + groups.length + ' groups in all)' : '');
}

const slider = $('score');
slider.addEventListener('input', () => {
  const limit = Number(slider.value);
  $('scoreValue').textContent = limit.toFixed(3);
  for (const g of groups) g.section.hidden = Number(g.section.dataset.score) > limit + 1e-9;
  counts();
});

let current = -1;
document.addEventListener('keydown', event => {
  if (event.key === 'Escape') { viewer.hidden = true; return; }
  if (!viewer.hidden || event.target.tagName === 'INPUT' && event.target.type === 'range') return;
  const step = {j: 1, ArrowDown: 1, k: -1, ArrowUp: -1}[event.key];
  if (!step) return;
  event.preventDefault();
  const visible = shown();
  if (visible.length === 0) return;
  const at = visible.findIndex(g => g.section.classList.contains('current'));
  current = Math.max(0, Math.min(visible.length - 1, at < 0 ? 0 : at + step));
  for (const g of groups) g.section.classList.remove('current');
  visible[current].section.classList.add('current');
  visible[current].section.scrollIntoView({block: 'start'});
  visible[current].section.focus({preventScroll: true});
});

// The choices of the groups shown, as `orvane dups --apply` reads them.
$('export').addEventListener('click', () => {
  const chosen = shown().map(g => g.cards.filter(c => c.box)
                                         .map(c => ({path: c.photo.path, keep: c.box.checked})));
  const text = JSON.stringify({orvane: 'dups choices', library: data.library, groups: chosen},
                              null, 1);
  const link = el('a');
  link.href = URL.createObjectURL(new Blob([text], {type: 'application/json'}));
  link.download = 'orvane-choices.json';
  document.body.append(link);
  link.click();
  link.remove();
});
counts();
)js";

struct SThumbnail {
  std::string uri;  // empty when the photo cannot be read
  int width = 0;
  int height = 0;
  int fileWidth = 0;
  int fileHeight = 0;
};

// A JPEG of at most kThumbnailSide pixels a side, upright, on white where it was transparent.
SThumbnail thumbnail(const std::string& path) {
  SThumbnail made;
  try {
    const vips::VImage header = vips::VImage::new_from_file(
        path.c_str(), vips::VImage::option()->set("access", VIPS_ACCESS_SEQUENTIAL));
    made.fileWidth = header.width();
    made.fileHeight = header.height();
    vips::VImage image = vips::VImage::thumbnail(
        path.c_str(), kThumbnailSide,
        vips::VImage::option()->set("height", kThumbnailSide)->set("size", VIPS_SIZE_DOWN));
    if (image.has_alpha()) {
      image = image.flatten(vips::VImage::option()->set("background", std::vector<double>{255}));
    }
    image = image.colourspace(VIPS_INTERPRETATION_sRGB);
    VipsBlob* blob = image.jpegsave_buffer(
        vips::VImage::option()->set("Q", 80)->set("strip", true));
    const VipsArea* area = VIPS_AREA(blob);
    gchar* base64 = g_base64_encode(static_cast<const guchar*>(area->data), area->length);
    made.uri = std::string("data:image/jpeg;base64,") + base64;
    g_free(base64);
    vips_area_unref(VIPS_AREA(blob));
    made.width = image.width();
    made.height = image.height();
  } catch (const vips::VError&) {
    vips_error_clear();
    made.uri.clear();
  }
  return made;
}

// "file://" and the path with every byte but unreserved ones and '/' percent-encoded.
std::string fileUrl(const std::string& path) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string url = "file://";
  for (const unsigned char c : path) {
    if (std::isalnum(c) || std::strchr("-._~/", c) != nullptr) {
      url += static_cast<char>(c);
    } else {
      url += '%';
      url += kHex[c >> 4];
      url += kHex[c & 15];
    }
  }
  return url;
}

std::string localTime(const struct timespec& time) {
  struct tm parts {};
  localtime_r(&time.tv_sec, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &parts);
  return text;
}

// The facts of one photo as the page's script reads them.
Json photoJson(const SPlannedMember& member) {
  Json photo{{"path", member.path},  {"url", fileUrl(member.path)},
             {"score", member.score}, {"keep", member.keep},
             {"reference", member.reference}};
  struct stat status {};
  if (stat(member.path.c_str(), &status) != 0) {
    photo["missing"] = true;
    return photo;
  }
  const SThumbnail thumb = thumbnail(member.path);
  photo["size"] = static_cast<std::int64_t>(status.st_size);
  photo["mtime"] = localTime(status.st_mtim);
  photo["width"] = thumb.fileWidth;
  photo["height"] = thumb.fileHeight;
  if (!thumb.uri.empty()) {
    photo["thumb"] = thumb.uri;
    photo["thumbWidth"] = thumb.width;
    photo["thumbHeight"] = thumb.height;
  }
  return photo;
}

// The facts of every photo, in the order given, made on `jobs` threads.
std::vector<Json> photosJson(const std::vector<const SPlannedMember*>& members, unsigned jobs) {
  std::vector<Json> made(members.size());
  std::atomic<std::size_t> next{0};
  const auto work = [&] {
    for (std::size_t i; (i = next++) < members.size();) made[i] = photoJson(*members[i]);
    endDecoderThread();
  };
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < std::max(1u, jobs); ++i) threads.emplace_back(work);
  for (std::thread& thread : threads) thread.join();
  return made;
}

// JSON that may sit inside a script block: ASCII only (no line separators), and '<', '>'
// and '&' as escapes, so that no text in it can close the block.
std::string scriptSafeJson(const Json& json) {
  const std::string text = json.dump(-1, ' ', true, Json::error_handler_t::replace);
  std::string safe;
  safe.reserve(text.size());
  for (const char c : text) {
    if (c == '<') {
      safe += "\\u003c";
    } else if (c == '>') {
      safe += "\\u003e";
    } else if (c == '&') {
      safe += "\\u0026";
    } else {
      safe += c;
    }
  }
  return safe;
}

float groupScore(const std::vector<SPlannedMember>& group) {
  float score = 0;
  for (const SPlannedMember& member : group) score = std::max(score, member.score);
  return score;
}

}  // namespace

SReviewSummary writeReviewPage(const std::string& file, const std::string& library,
                               const std::vector<std::vector<SPlannedMember>>& plan,
                               unsigned jobs) {
  // Surest first: by the loosest link of each group; equal scores by the first path.
  std::vector<const std::vector<SPlannedMember>*> order;
  for (const auto& group : plan) order.push_back(&group);
  std::stable_sort(order.begin(), order.end(), [](const auto* a, const auto* b) {
    const float scoreA = groupScore(*a);
    const float scoreB = groupScore(*b);
    return scoreA != scoreB ? scoreA < scoreB : a->front().path < b->front().path;
  });

  std::vector<const SPlannedMember*> members;
  for (const auto* group : order) {
    for (const SPlannedMember& member : *group) members.push_back(&member);
  }
  const std::vector<Json> facts = photosJson(members, jobs);

  SReviewSummary summary;
  summary.groups = plan.size();
  summary.photos = members.size();
  Json groups = Json::array();
  std::size_t at = 0;
  for (const std::vector<SPlannedMember>* group : order) {
    Json photos = Json::array();
    for (std::size_t i = 0; i < group->size(); ++i, ++at) {
      const Json& photo = facts[at];
      if (photo.contains("missing")) {
        ++summary.missing;
      } else if (!members[at]->keep) {
        summary.reclaimable += photo["size"].get<std::int64_t>();
      }
      photos.push_back(photo);
    }
    groups.push_back({{"score", groupScore(*group)}, {"photos", photos}});
  }

  // Written beside the page and renamed over it, so that an interrupted run leaves the page
  // that was there whole.
  const std::string part = file + ".orvane-part";
  std::ofstream out(part, std::ios::binary | std::ios::trunc);
  out << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      << "<meta name=\"viewport\" content=\"width=device-width\">\n"
      << "<title>Duplicate photos</title>\n<style>" << kStyle << "</style>\n</head>\n<body>"
      << kBody << "<script type=\"application/json\" id=\"orvane-data\">"
      << scriptSafeJson({{"library", library}, {"groups", groups}}) << "</script>\n<script>"
      << kScript << "</script>\n</body>\n</html>\n";
  out.close();
  if (!out || std::rename(part.c_str(), file.c_str()) != 0) {
    const int failure = errno;
    std::remove(part.c_str());
    throw CToolError(file, std::string("cannot write the page: ") + std::strerror(failure));
  }
  return summary;
}
