// The review page end to end: the tool writes it for a library with planted groups, Debian's
// Chromium loads it from disk headless, a driver script appended to a copy of the page checks
// the rendered DOM, uses the score slider and the keep ticks, and catches the exported
// choices, which `dups --apply` then carries out. Skipped where Chromium cannot start.
#include <glib.h>
#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/tools/ToolTest.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

// Checks the page in a browser and writes what it found, as base64 JSON, into the DOM.
const char kDriver[] = R"js(<script>
(async () => {
  const all = (selector, within = document) => [...within.querySelectorAll(selector)];
  const press = key => document.dispatchEvent(new KeyboardEvent('keydown', {key}));
  const loading = () => all('img.thumb').some(t => !t.complete || t.naturalWidth === 0);
  for (let i = 0; i < 100 && loading(); ++i) await new Promise(done => setTimeout(done, 100));
  const r = {errors: []};
  window.addEventListener('error', e => r.errors.push(e.message));
  const groups = () => all('section.group');
  r.groups = groups().length;
  r.thumbs = all('img.thumb').map(t => t.naturalWidth);
  r.cards = all('figure.photo').map(
      f => [f.querySelector('.path').textContent, f.querySelector('.mark').textContent.trim()]);
  r.injected = window.pwned === 1 || document.querySelector('img[src="x"]') !== null;
  r.counts = document.getElementById('counts').textContent;
  press('j');
  press('j');
  r.current = groups().findIndex(g => g.classList.contains('current'));
  for (const box of all('input.compare', groups()[1]).slice(-2)) box.click();
  r.compared = all('#viewer:not([hidden]) .pane img').map(i => [i.clientWidth, i.clientHeight]);
  press('Escape');
  const slider = document.getElementById('score');
  slider.value = '0';
  slider.dispatchEvent(new Event('input'));
  r.shown = groups().filter(g => !g.hidden).length;
  for (const box of all('span.mark + input', groups()[0])) box.click();
  // The exported blob is caught here; the download itself would land in the user's folder.
  let blob = null;
  const objectUrl = URL.createObjectURL;
  URL.createObjectURL = made => { blob = made; return objectUrl(made); };
  document.addEventListener('click', e => { if (e.target.download) e.preventDefault(); }, true);
  document.getElementById('export').click();
  r.exported = blob ? JSON.parse(await blob.text()) : null;
  return r;
})().catch(e => ({failure: String(e)})).then(r => {
  const out = Object.assign(document.createElement('pre'), {id: 'test-result'});
  out.textContent = btoa(unescape(encodeURIComponent(JSON.stringify(r))));
  document.body.append(out);
});
</script>
)js";

using ReviewPageTest = ToolTest;

TEST_F(ReviewPageTest, BrowserShowsTheGroupsAndItsChoicesAreApplied) {
  const std::string kept = save(scene(1, 1200, 900), "a.png");
  // A name with spaces, both quotes, '<', '&', non-ASCII and, with its folder, "</script>".
  fs::create_directories(photos / "x<");
  const std::string hostile =
      photo("x</script><img src=x onerror=window.pwned=1> it's \"q\" & \u00e9.png");
  fs::copy_file(kept, hostile);
  const vips::VImage second = scene(6, 1200, 900);
  save(second, "b.png");
  save(second.resize(0.5), "b-small.jpg[Q=70]");
  save(second, "b-gone.png");
  save(scene(3, 900, 1200), "c.png");
  run({"index", library, photos}, 0);
  fs::remove(photo("b-gone.png"));

  const std::string page = (dir / "review.html").string();
  run({"dups", library, "--html", page}, 0, "2 groups, 5 photos (1 missing)");

  const fs::path driven = dir / "driven.html";
  std::ofstream(driven) << readFile(page) << kDriver;
  // Headless on the page from disk, with a fresh profile and nothing from the network.
  std::istringstream flags(
      "timeout -k 5 120 chromium --headless --no-sandbox --disable-gpu --disable-quic "
      "--no-first-run --disable-background-networking --disable-component-update "
      "--disable-sync --window-size=1280,900 --virtual-time-budget=10000 --dump-dom");
  std::vector<std::string> browser(std::istream_iterator<std::string>(flags), {});
  browser.push_back("--user-data-dir=" + (dir / "browser").string());
  browser.push_back("file://" + driven.string());
  const std::string dom = dir / "dom";
  if (runProgram(browser, dom) != 0) {
    GTEST_SKIP() << "Chromium cannot start here (scripts/install-deps.sh installs it): "
                 << readFile(dom + ".err");
  }
  const std::string dump = readFile(dom);
  const std::string tag = "<pre id=\"test-result\">";
  const std::size_t from = dump.find(tag) + tag.size();
  ASSERT_GT(from, tag.size()) << readFile(dom + ".err");
  gsize length = 0;
  guchar* decoded =
      g_base64_decode(dump.substr(from, dump.find("</pre>", from) - from).c_str(), &length);
  const Json result = Json::parse(std::string(reinterpret_cast<char*>(decoded), length));
  g_free(decoded);

  ASSERT_FALSE(result.contains("failure")) << result["failure"];
  EXPECT_EQ(result["errors"], Json::array());
  EXPECT_EQ(result["groups"], 2);
  EXPECT_THAT(result["thumbs"].get<std::vector<int>>(),
              ::testing::AllOf(::testing::SizeIs(4), ::testing::Each(::testing::Gt(0))));
  using Card = std::vector<std::string>;
  EXPECT_THAT(result["cards"].get<std::vector<Card>>(),
              ::testing::ElementsAre(
                  Card{kept, "keep"}, Card{hostile, "move"}, Card{photo("b-gone.png"), "missing"},
                  Card{photo("b-small.jpg"), "move"}, Card{photo("b.png"), "keep"}));
  EXPECT_FALSE(result["injected"]);
  EXPECT_THAT(result["counts"].get<std::string>(), ::testing::StartsWith("2 groups, 5 photos, "));
  EXPECT_EQ(result["current"], 1) << "two steps down";
  ASSERT_EQ(result["compared"].size(), 2u) << "side by side";
  EXPECT_EQ(result["compared"][0], result["compared"][1]) << "at the same size";
  EXPECT_EQ(result["shown"], 1) << "only the identical copies score 0, the lowest";

  // The first group's ticks were turned over and only it is exported.
  const fs::path out = dir / "moved";
  EXPECT_EQ(result["exported"]["groups"],
            Json::parse(R"([[{"path": )" + Json(kept).dump() + R"(, "keep": false}, {"path": )" +
                        Json(hostile).dump() + R"(, "keep": true}]])"));
  // A page is for looking before anything moves.
  run({"dups", library, "--html", page, "--move-to", out}, 2);
  const std::string choicesFile = (dir / "choices.json").string();
  std::ofstream(choicesFile) << result["exported"].dump();
  run({"dups", library, "--apply", choicesFile, "--move-to", out, "--dry-run"}, 0);
  EXPECT_FALSE(fs::exists(out));
  run({"dups", library, "--apply", choicesFile, "--move-to", out}, 0);
  EXPECT_FALSE(fs::exists(kept));
  EXPECT_TRUE(fs::exists(out / "a.png"));
  EXPECT_TRUE(fs::exists(hostile));
  EXPECT_TRUE(fs::exists(photo("b-small.jpg"))) << "its group was not exported";
}

}  // namespace
