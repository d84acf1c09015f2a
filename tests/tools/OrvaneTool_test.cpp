// The orvane tool run as a program, on photos that the tests make with libvips: distinct
// scenes, and changed copies of one of them (smaller, low JPEG quality, cropped, turned by
// its EXIF orientation).
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>
#include <vips/vips8>

#include "tests/support/ReadFile.h"
#include "tests/support/RunProgram.h"

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;
using Json = nlohmann::json;

struct SRun {
  int status;
  std::string out;
  std::string err;
};

// A scene of its own for every seed: waves of three frequencies and a bright block.
vips::VImage scene(int seed, int width, int height) {
  const vips::VImage xy = vips::VImage::xyz(width, height);
  const vips::VImage x = xy[0] / static_cast<double>(width);
  const vips::VImage y = xy[1] / static_cast<double>(height);
  const vips::VImage red = (x * (360.0 * (1 + seed % 4)) + 50.0 * seed).sin() * 110 + 128;
  const vips::VImage green = (y * (360.0 * (1 + seed % 3)) + 90.0 * seed).sin() * 110 + 128;
  const vips::VImage blue = ((x + y) * (180.0 * (2 + seed % 5)) + 130.0 * seed).sin() * 110 + 128;
  const double left = 0.1 * (seed % 7);
  const double top = 0.12 * (seed % 5);
  const vips::VImage block = (x > left) & (x < left + 0.3) & (y > top) & (y < top + 0.3);
  const vips::VImage waves = red.bandjoin(green).bandjoin(blue);
  return block.ifthenelse(std::vector<double>{250.0, 240.0, 60.0 * (seed % 4)}, waves)
      .cast(VIPS_FORMAT_UCHAR)
      .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
}

// The rows that the statements give, a line each of its columns ended by '|'; nothing when
// the file cannot be opened or the statements fail (as while the tool is still making it).
std::optional<std::string> sql(const std::string& file, const std::string& statements,
                               int open = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) {
  sqlite3* db = nullptr;
  std::string rows;
  const auto row = [](void* out, int columns, char** values, char**) {
    std::string& rows = *static_cast<std::string*>(out);
    for (int i = 0; i < columns; ++i) rows += std::string(values[i] ? values[i] : "") + "|";
    rows += "\n";
    return 0;
  };
  const bool done = sqlite3_open_v2(file.c_str(), &db, open, nullptr) == SQLITE_OK &&
                    sqlite3_exec(db, statements.c_str(), row, &rows, nullptr) == SQLITE_OK;
  sqlite3_close(db);
  return done ? std::optional(rows) : std::nullopt;
}

class OrvaneToolTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(VIPS_INIT("tools_test"), 0); }

  void SetUp() override {
    char pattern[] = "/tmp/orvane-tool-test-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir = pattern;
    photos = dir / "photos";
    fs::create_directories(photos);
    library = (dir / "photos.orvane").string();
  }
  void TearDown() override { fs::remove_all(dir); }

  SRun run(const std::string& arguments) const {
    const fs::path out = dir / "stdout";
    const fs::path err = dir / "stderr";
    const std::string command = std::string(ORVANE_TOOL) + " " + arguments + " >" +
                                out.string() + " 2>" + err.string();
    const int raw = std::system(command.c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, readFile(out), readFile(err)};
  }

  std::string save(const vips::VImage& image, const fs::path& path, const char* options = "") {
    image.write_to_file((path.string() + options).c_str());
    return path.string();
  }

  // Scenes 1, 2 and 3, and three changed copies of scene 1.
  void makeFolder() {
    fs::create_directories(photos / "copies");
    const vips::VImage first = scene(1, 1200, 900);
    save(first, photos / "first.jpg", "[Q=92]");
    save(scene(2, 1200, 900), photos / "second.png");
    save(scene(3, 900, 1200), photos / "third.jpg", "[Q=92]");
    save(first.resize(0.5), photos / "copies" / "first-small.jpg");
    save(first, photos / "copies" / "first-q15.jpg", "[Q=15]");
    save(first.crop(30, 20, 1140, 860), photos / "copies" / "first-cropped.png");
  }

  void index() {
    const SRun indexed = run("index " + library + " " + photos.string());
    ASSERT_EQ(indexed.status, 0) << indexed.err;
  }

  std::string photo(const char* name) const { return (photos / name).string(); }

  fs::path dir;
  fs::path photos;
  std::string library;
};

TEST_F(OrvaneToolTest, IndexSkipsUnchangedFilesAndTakesChangedOnes) {
  makeFolder();
  SRun first = run("index " + library + " " + photos.string() + " -j 2");
  EXPECT_EQ(first.status, 0) << first.err;
  EXPECT_THAT(first.out, HasSubstr("6 added, 0 updated, 0 skipped, 0 failed"));

  SRun again = run("index " + library + " " + photos.string());
  EXPECT_THAT(again.out, HasSubstr("0 added, 0 updated, 6 skipped, 0 failed"));

  save(scene(4, 1200, 900), photos / "second.png");
  fs::last_write_time(photos / "second.png",
                      fs::last_write_time(photos / "second.png") + std::chrono::seconds(5));
  SRun changed = run("index " + library + " " + photos.string());
  EXPECT_THAT(changed.out, HasSubstr("0 added, 1 updated, 5 skipped, 0 failed"));

  fs::remove(photos / "third.jpg");
  SRun pruned = run("index " + library + " " + photos.string() + " --prune");
  EXPECT_THAT(pruned.out, HasSubstr("0 added, 0 updated, 5 skipped, 0 failed, 1 pruned"));

  SRun info = run("info " + library);
  EXPECT_EQ(info.status, 0);
  EXPECT_THAT(info.out, HasSubstr("photos    5\n"));
  EXPECT_THAT(info.out, HasSubstr("Orvane.dll 0.2 000"));
}

TEST_F(OrvaneToolTest, FindAnswersTheSamePhotoOrTheNearest) {
  makeFolder();
  index();
  const std::string stranger = save(scene(7, 1000, 800), dir / "stranger.jpg");

  SRun same = run("find " + library + " " + photo("copies/first-q15.jpg"));
  EXPECT_EQ(same.status, 0) << same.err;
  for (const char* name : {"first.jpg", "copies/first-small.jpg", "copies/first-q15.jpg",
                           "copies/first-cropped.png"}) {
    EXPECT_THAT(same.out, HasSubstr(photo(name))) << name;
  }
  EXPECT_THAT(same.out, Not(HasSubstr("second")));
  EXPECT_THAT(same.out, Not(HasSubstr("third")));

  SRun none = run("find " + library + " " + stranger);
  EXPECT_EQ(none.status, 1);
  EXPECT_THAT(none.out, HasSubstr("no same photo"));

  SRun nearest = run("find " + library + " " + stranger + " --near 2");
  EXPECT_EQ(nearest.status, 0);
  EXPECT_EQ(std::count(nearest.out.begin(), nearest.out.end(), '\n'), 3) << nearest.out;
}

TEST_F(OrvaneToolTest, DupsListsEachGroupOnce) {
  makeFolder();
  index();
  SRun dups = run("dups " + library);
  EXPECT_EQ(dups.status, 0) << dups.err;
  EXPECT_THAT(dups.out, ::testing::StartsWith("4 photos:\n"));
  for (const char* name : {"first.jpg", "copies/first-small.jpg", "copies/first-q15.jpg",
                           "copies/first-cropped.png"}) {
    const std::string path = photo(name);
    const std::size_t at = dups.out.find(path);
    EXPECT_NE(at, std::string::npos) << name;
    EXPECT_EQ(dups.out.find(path, at + 1), std::string::npos) << name << " listed twice";
  }
  EXPECT_THAT(dups.out, Not(HasSubstr("second")));

  fs::remove_all(photos / "copies");
  fs::remove(photos / "first.jpg");
  run("index " + library + " " + photos.string() + " --prune");
  SRun none = run("dups " + library);
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.out, "no duplicates among 2 photos\n");
}

// A library written before the vectors cache (layout 1: photos, a change counter and a saved
// database stream) is upgraded on first use and answers as a new one; a photo whose
// signature cannot be read is reported and left out.
TEST_F(OrvaneToolTest, OldLibrariesAreUpgradedAndAnswerAlike) {
  makeFolder();
  index();
  const SRun fresh = run("dups " + library + " --json -j 1");
  ASSERT_EQ(fresh.status, 0) << fresh.err;
  const std::string old = (dir / "old.orvane").string();
  ASSERT_TRUE(sql(old, R"sql(
    CREATE TABLE photo (id INTEGER PRIMARY KEY, path TEXT NOT NULL UNIQUE, size INTEGER NOT NULL,
                        mtime INTEGER NOT NULL, signature BLOB NOT NULL);
    CREATE TABLE counter (generation INTEGER NOT NULL);
    INSERT INTO counter VALUES (0);
    CREATE TABLE cache (generation INTEGER NOT NULL, stream BLOB NOT NULL);
    CREATE TRIGGER photo_inserted AFTER INSERT ON photo
      BEGIN UPDATE counter SET generation = generation + 1; END;
    CREATE TRIGGER photo_updated AFTER UPDATE ON photo
      BEGIN UPDATE counter SET generation = generation + 1; END;
    CREATE TRIGGER photo_deleted AFTER DELETE ON photo
      BEGIN UPDATE counter SET generation = generation + 1; END;
    ATTACH ')sql" + library + R"sql(' AS fresh;
    INSERT INTO photo SELECT * FROM fresh.photo;
    INSERT INTO cache VALUES (6, x'0000');
    PRAGMA application_id = 1330796110;  -- "ORVN"
    PRAGMA user_version = 1;)sql"));
  const SRun upgraded = run("dups " + old + " --json");
  EXPECT_EQ(upgraded.status, 0) << upgraded.err;
  EXPECT_EQ(upgraded.out, fresh.out);
  EXPECT_EQ(run("find " + old + " " + photo("first.jpg")).out,
            run("find " + library + " " + photo("first.jpg")).out);

  ASSERT_TRUE(sql(old, "UPDATE photo SET signature = x'4f52' WHERE path LIKE '%first-q15%'"));
  const SRun skipped = run("dups " + old);
  EXPECT_EQ(skipped.status, 0);
  EXPECT_THAT(skipped.out, ::testing::StartsWith("3 photos:\n"));
  EXPECT_THAT(skipped.err, HasSubstr(photo("copies/first-q15.jpg")));
  EXPECT_THAT(skipped.err, HasSubstr("1 photos skipped"));
  // The second run reads the stored cache and still knows what it left out.
  EXPECT_EQ(run("dups " + old).err, skipped.err);
}

TEST_F(OrvaneToolTest, JsonAnswersParse) {
  makeFolder();
  index();
  const Json found = Json::parse(run("find " + library + " " + photo("second.png") + " " +
                                     photo("first.jpg") + " --near 6 --json")
                                     .out);
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[1]["photo"], photo("first.jpg"));
  const Json& matches = found[1]["matches"];
  ASSERT_EQ(matches.size(), 6u);
  EXPECT_EQ(matches[0]["path"], photo("first.jpg"));
  EXPECT_EQ(matches[0]["score"], 0.0);
  for (std::size_t i = 1; i < matches.size(); ++i) {
    EXPECT_LE(matches[i - 1]["score"].get<double>(), matches[i]["score"].get<double>());
  }

  const Json groups = Json::parse(run("dups " + library + " --json").out);
  ASSERT_EQ(groups.size(), 1u);
  ASSERT_EQ(groups[0].size(), 4u);
  for (const Json& member : groups[0]) {
    EXPECT_THAT(member["path"].get<std::string>(), HasSubstr("first"));
    EXPECT_LE(member["score"].get<double>(), 0.07);
    EXPECT_GT(member["id"].get<int>(), 0);
  }
}

TEST_F(OrvaneToolTest, ScoresReadTheSameFromTheCacheAndFromTheSignatures) {
  makeFolder();
  index();
  const std::string query = "find " + library + " " + photo("third.jpg") + " --near 6 --json";
  const SRun cached = run(query);
  ASSERT_TRUE(sql(library, "DELETE FROM vectors"));
  const SRun rebuilt = run(query);
  EXPECT_EQ(cached.status, 0);
  EXPECT_EQ(cached.out, rebuilt.out);
}

TEST_F(OrvaneToolTest, PhotosAreTurnedUprightByTheirOrientation) {
  // Red above blue: turned a quarter, the colours sit side by side instead.
  const vips::VImage top = vips::VImage::xyz(1200, 900)[1] < 450;
  const vips::VImage halves = top.ifthenelse(std::vector<double>{220.0, 30.0, 30.0},
                                             std::vector<double>{20.0, 30.0, 220.0});
  const vips::VImage upright = (halves * 0.7 + scene(5, 1200, 900) * 0.3)
                                   .cast(VIPS_FORMAT_UCHAR)
                                   .copy(vips::VImage::option()->set("interpretation",
                                                                     VIPS_INTERPRETATION_sRGB));
  // Stored turned a quarter to the left; orientation 6 says to turn it back to the right.
  vips::VImage turned = upright.rot270().copy();
  turned.set("orientation", 6);
  save(turned, photos / "turned.jpg", "[Q=95]");
  save(scene(6, 1200, 900), photos / "other.jpg");
  index();
  const std::string query = save(upright, dir / "upright.jpg", "[Q=95]");
  SRun found = run("find " + library + " " + query);
  EXPECT_EQ(found.status, 0) << found.out;
  EXPECT_THAT(found.out, HasSubstr(photo("turned.jpg")));
}

TEST_F(OrvaneToolTest, BadPhotosAreReportedAndSkipped) {
  save(scene(1, 800, 600), photos / "good.jpg");
  const std::string jpeg = readFile(photos / "good.jpg");
  std::ofstream(photos / "truncated.jpg", std::ios::binary) << jpeg.substr(0, jpeg.size() / 2);
  std::ofstream(photos / "notes.jpg") << "not a photo\n";
  std::ofstream(photos / "empty.png");
  std::ofstream(photos / "readme.txt") << "not looked at: no photo extension\n";
  // Too thin to be fitted into the library's working box.
  save(scene(2, 1000, 3), photos / "thin.png");

  SRun indexed = run("index " + library + " " + photos.string() + " " + photo("missing.jpg"));
  EXPECT_EQ(indexed.status, 3);
  EXPECT_THAT(indexed.out, ::testing::MatchesRegex("1 added, 0 updated, 0 skipped, 5 failed in [^\n]*\n"));
  for (const char* name : {"truncated.jpg", "notes.jpg", "empty.png", "missing.jpg", "thin.png"}) {
    EXPECT_THAT(indexed.err, HasSubstr("orvane: " + photo(name) + ": ")) << name;
  }
  EXPECT_THAT(indexed.err, HasSubstr("notes.jpg: not a photo"));
  EXPECT_THAT(indexed.err, Not(HasSubstr("readme.txt")));

  for (const char* name : {"notes.jpg", "thin.png"}) {
    SCOPED_TRACE(name);
    SRun query = run("find " + library + " " + photo(name) + " --json");
    EXPECT_EQ(query.status, 3);
    EXPECT_THAT(query.err, HasSubstr(photo(name)));
    const Json answer = Json::parse(query.out);  // nothing but the answer on standard output
    EXPECT_FALSE(answer[0]["error"].get<std::string>().empty());
  }
}

TEST_F(OrvaneToolTest, ForeignOrDamagedLibraryIsRefusedAndLeftAlone) {
  save(scene(1, 800, 600), photos / "good.jpg");
  const std::string garbage = dir / "garbage.orvane";
  std::ofstream(garbage, std::ios::binary) << std::string(5000, '\x5a');
  const std::string foreign = dir / "foreign.sqlite";
  ASSERT_TRUE(sql(foreign, "CREATE TABLE photo (x)"));
  // An orvane library with a damaged page in the middle.
  index();
  const std::string damaged = dir / "damaged.orvane";
  std::string bytes = readFile(library);
  // The second page; the header gives the page size, 1 standing for 65536.
  const unsigned sizeField = static_cast<unsigned char>(bytes.at(16)) << 8 |
                             static_cast<unsigned char>(bytes.at(17));
  const size_t pageSize = sizeField == 1 ? 65536 : sizeField;
  ASSERT_GT(bytes.size(), 2 * pageSize);
  bytes.replace(pageSize, 4096, std::string(4096, '\xff'));
  std::ofstream(damaged, std::ios::binary) << bytes;

  const struct {
    std::string file;
    std::vector<std::string> commands;
  } cases[] = {
      {garbage, {"index", "find", "dups", "info"}},
      {foreign, {"index", "find", "dups", "info"}},
      {damaged, {"index"}},
  };
  for (const auto& c : cases) {
    const std::string before = readFile(c.file);
    for (const std::string& command : c.commands) {
      SCOPED_TRACE(command + " " + c.file);
      const std::string tail = command == "index" ? photos.string()
                               : command == "find" ? photo("good.jpg")
                                                   : "";
      SRun refused = run(command + " " + c.file + " " + tail);
      EXPECT_EQ(refused.status, 3);
      EXPECT_THAT(refused.err, HasSubstr("orvane: " + c.file + ": "));
      EXPECT_EQ(readFile(c.file), before);
    }
  }
}

// Opened without creating it, so that the tool is the one to make the library.
int photoRows(const std::string& library) {
  const auto rows = sql(library, "SELECT count(*) FROM photo", SQLITE_OPEN_READWRITE);
  return rows ? std::stoi(*rows) : -1;
}

TEST_F(OrvaneToolTest, IndexKilledHalfWayLeavesAValidLibrary) {
  // Enough work that the first commit, half a second in, cannot hold it all.
  constexpr int kPhotos = 200;
  const std::string first = save(scene(1, 2400, 1800), photos / "photo-000.jpg");
  for (int i = 1; i < kPhotos; ++i) {
    fs::copy_file(first, photos / ("photo-" + std::to_string(1000 + i).substr(1) + ".jpg"));
  }
  const pid_t child = startProgram({ORVANE_TOOL, "index", library, photos, "-j", "1"}, dir / "log");
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (photoRows(library) <= 0 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  kill(child, SIGKILL);
  ASSERT_EQ(waitProgram(child), -1) << "the index ended before it was killed";

  const int kept = photoRows(library);
  EXPECT_GT(kept, 0);
  EXPECT_LT(kept, kPhotos);
  SRun info = run("info " + library);
  EXPECT_EQ(info.status, 0) << info.err;
  EXPECT_THAT(info.out, HasSubstr("photos    " + std::to_string(kept) + "\n"));
  SRun found = run("find " + library + " " + first);
  EXPECT_EQ(found.status, 0) << found.err;

  SRun resumed = run("index " + library + " " + photos.string());
  EXPECT_THAT(resumed.out, HasSubstr(std::to_string(kPhotos - kept) + " added, 0 updated, " +
                                     std::to_string(kept) + " skipped, 0 failed"));
}

TEST_F(OrvaneToolTest, UsageErrorsExitWithTwo) {
  const struct {
    std::string arguments;
    int status;
  } cases[] = {
      {"", 2},
      {"frobnicate", 2},
      {"index", 2},
      {"index " + library, 2},
      {"find " + library, 2},
      {"find " + library + " x.jpg --near 0", 2},
      {"index " + library + " . -j 0", 2},
      {"--help", 0},
      {"find --help", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.arguments);
    EXPECT_EQ(run(c.arguments).status, c.status);
  }
  EXPECT_FALSE(fs::exists(library));
  EXPECT_THAT(run("find " + library + " x.jpg --near 0").err,
              HasSubstr("--near: must be a whole number from 1 to 1000000, not 0"));
}

TEST_F(OrvaneToolTest, LibraryKeepsTheDecodeModeItWasMadeWith) {
  // Fast mode decodes this one at half its size.
  const std::string camera = save(scene(3, 2600, 1950), photos / "camera.jpg", "[Q=90]");
  const std::string fast = (dir / "fast.orvane").string();
  ASSERT_EQ(run("index " + fast + " " + photos.string() + " --fast").status, 0);
  index();

  EXPECT_THAT(run("info " + fast).out, HasSubstr("decoding  fast (index --fast)\n"));
  EXPECT_THAT(run("info " + library).out, HasSubstr("decoding  full\n"));
  const SRun intoFast = run("index " + fast + " " + photos.string());
  EXPECT_EQ(intoFast.status, 3);
  EXPECT_THAT(intoFast.err, HasSubstr(fast + ": this library was made with --fast; index into it "
                                             "with --fast, or into a new library file without it"));
  const SRun intoFull = run("index " + library + " " + photos.string() + " --fast");
  EXPECT_EQ(intoFull.status, 3);
  EXPECT_THAT(intoFull.err, HasSubstr(library + ": this library was made without --fast"));

  // Each library decodes its queries as it decoded its photos, so the photo finds itself
  // at distance 0 in both.
  for (const std::string& made : {fast, library}) {
    SCOPED_TRACE(made);
    const Json found = Json::parse(run("find " + made + " " + camera + " --json").out);
    EXPECT_EQ(found[0]["matches"][0]["score"], 0.0);
  }
}

TEST_F(OrvaneToolTest, PhotosAboveThePixelBoundAreDecodedSmallerInBoundedMemory) {
  // 400 megapixels in a megabyte; and one above the bound whose format cannot be decoded at
  // a reduced scale.
  save(vips::VImage::black(20000, 20000), photos / "bomb.png", "[compression=9]");
  save(vips::VImage::black(12000, 9000), photos / "interlaced.png", "[interlace]");
  const std::string out = dir / "out";
  struct rusage usage {};
  EXPECT_EQ(waitProgram(startProgram({ORVANE_TOOL, "index", library, photos}, out), &usage), 3);
  // Processor time, which a busy machine does not stretch as it does the clock.
  const double seconds = usage.ru_utime.tv_sec + usage.ru_stime.tv_sec +
                         1e-6 * (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
  EXPECT_THAT(readFile(out), HasSubstr("1 added, 0 updated, 0 skipped, 1 failed"));
  const std::string err = readFile(out + ".err");
  EXPECT_THAT(err, HasSubstr(photo("bomb.png") + ": 20000 x 20000 pixels, more than 100 "
                                                 "megapixels: indexed from a decode at 10000 x "
                                                 "10000"));
  EXPECT_THAT(err, HasSubstr(photo("interlaced.png") + ": 12000 x 9000 pixels, more than 100 "
                                                       "megapixels, in a progressive or "
                                                       "interlaced format"));
  // The bounded photo's 300 MB of pixels and little else; a whole decode takes 1.2 GB.
  EXPECT_LT(usage.ru_maxrss, 600 * 1024) << "kilobytes";
  EXPECT_LT(seconds, 30);
}

TEST_F(OrvaneToolTest, MirroredAndTurnedCopiesAreFoundInAnyOrientation) {
  // Dark on the left, bright on the right: a mirror image is no longer the same photo.
  const vips::VImage ramp = vips::VImage::xyz(1200, 900)[0] / 1200.0 * 0.8 + 0.2;
  const vips::VImage first =
      (scene(1, 1200, 900) * ramp)
          .cast(VIPS_FORMAT_UCHAR)
          .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
  save(first, photos / "first.jpg", "[Q=92]");
  // Large enough to be made smaller before dups turns it.
  save(first.resize(1.8).fliphor(), photos / "first-mirrored.png");
  save(first.rot90(), photos / "first-turned.jpg", "[Q=92]");
  save(scene(2, 1200, 900), photos / "second.jpg", "[Q=92]");
  save(scene(3, 900, 1200), photos / "third.jpg", "[Q=92]");
  index();

  const std::string query = "find " + library + " " + photo("first.jpg") + " --json";
  const Json asIs = Json::parse(run(query).out)[0]["matches"];
  ASSERT_EQ(asIs.size(), 1u) << asIs;
  const Json any = Json::parse(run(query + " --any-orientation").out)[0]["matches"];
  std::map<std::string, std::string> found;
  for (const Json& match : any) found[match["path"]] = match["orientation"];
  EXPECT_EQ(found, (std::map<std::string, std::string>{{photo("first.jpg"), "as is"},
                                                       {photo("first-mirrored.png"), "mirrored"},
                                                       {photo("first-turned.jpg"), "turned 90"}}));

  EXPECT_EQ(run("dups " + library).status, 1);
  const SRun dups = run("dups " + library + " --any-orientation -j 2");
  EXPECT_EQ(dups.status, 0) << dups.err;
  EXPECT_THAT(dups.out, HasSubstr("3 photos:\n"));
  EXPECT_THAT(dups.out, HasSubstr(photo("first-mirrored.png") + "  (mirrored)"));
  EXPECT_THAT(dups.out, Not(HasSubstr("second")));
}

// Every file and folder under a folder, the files with their size and modification time.
std::set<std::string> listing(const fs::path& folder, bool stamps = true) {
  std::set<std::string> lines;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    std::string line = entry.path().string();
    if (stamps && entry.is_regular_file()) {
      line += " " + std::to_string(entry.file_size()) + " " +
              std::to_string(entry.last_write_time().time_since_epoch().count());
    }
    lines.insert(line);
  }
  return lines;
}

TEST_F(OrvaneToolTest, EachKeepRuleChoosesItsPhoto) {
  makeFolder();
  // Oldest first: first-q15, first.jpg, first-cropped, first-small.
  const char* byAge[] = {"copies/first-q15.jpg", "first.jpg", "copies/first-cropped.png",
                         "copies/first-small.jpg"};
  const auto now = fs::file_time_type::clock::now();
  for (int i = 0; i < 4; ++i) fs::last_write_time(photo(byAge[i]), now - std::chrono::hours(4 - i));
  index();
  const struct {
    const char* rule;
    const char* kept;
  } cases[] = {{"pixels", "first.jpg"},
               {"largest", "copies/first-cropped.png"},
               {"newest", "copies/first-small.jpg"},
               {"oldest", "copies/first-q15.jpg"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.rule);
    const SRun dups = run("dups " + library + " --json --keep " + c.rule);
    EXPECT_EQ(dups.status, 0) << dups.err;
    std::vector<std::string> kept;
    for (const Json& group : Json::parse(dups.out)) {
      for (const Json& member : group) {
        if (member["action"] == "keep") kept.push_back(member["path"]);
      }
    }
    EXPECT_EQ(kept, std::vector<std::string>{photo(c.kept)});
  }
  EXPECT_EQ(run("dups " + library + " --keep biggest").status, 2);
}

TEST_F(OrvaneToolTest, MoveToMovesTheOthersAndRecordsWhereTheyAre) {
  makeFolder();
  const fs::path reference = dir / "reference";
  fs::create_directories(reference);
  fs::copy_file(photo("second.png"), reference / "second.png");
  fs::copy_file(photo("third.jpg"), reference / "third.jpg");
  index();
  ASSERT_EQ(run("index " + library + " " + reference.string()).status, 0);
  const fs::path out = dir / "out";
  // Taken already: reported and skipped, and the file there stays as it is.
  fs::create_directories(out / "copies");
  std::ofstream(out / "copies" / "first-q15.jpg") << "someone else's file";
  fs::remove(photo("copies/first-small.jpg"));  // vanished since it was indexed
  const auto referenceListing = listing(reference);

  const std::string dups = "dups " + library + " --reference " + reference.string();
  for (const std::string& inside : {photo("copies/new"), (reference / "x").string()}) {
    SCOPED_TRACE(inside);
    const SRun refused = run(dups + " --move-to " + inside);
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.err, HasSubstr("is inside"));
    EXPECT_FALSE(fs::exists(inside));
  }

  const SRun moved = run(dups + " --move-to " + out.string());
  EXPECT_EQ(moved.status, 3) << moved.err;
  EXPECT_THAT(moved.err, HasSubstr(photo("copies/first-small.jpg") + ": No such file"));
  EXPECT_THAT(moved.err, HasSubstr(photo("copies/first-q15.jpg") + ": target exists"));
  EXPECT_THAT(moved.out, HasSubstr("3 moved, 2 failed"));
  EXPECT_EQ(readFile(out / "copies" / "first-q15.jpg"), "someone else's file");
  EXPECT_EQ(listing(reference), referenceListing);
  // The reference copies stay; so do the photos without a copy in them, by the keep rule.
  for (const char* name : {"first.jpg", "copies/first-q15.jpg"}) {
    EXPECT_TRUE(fs::exists(photo(name))) << name;
  }
  for (const char* name : {"second.png", "third.jpg", "copies/first-cropped.png"}) {
    EXPECT_FALSE(fs::exists(photo(name))) << name;
    EXPECT_TRUE(fs::exists(out / name)) << name;
  }
  const SRun found = run("find " + library + " " + (reference / "second.png").string());
  EXPECT_THAT(found.out, HasSubstr((out / "second.png").string()));
  // Photos under the move-to folder take no part any more.
  const SRun again = run(dups + " --move-to " + out.string() + " --json");
  EXPECT_EQ(Json::parse(again.out).size(), 1u) << again.out;  // first.jpg with first-q15.jpg
}

TEST_F(OrvaneToolTest, DryRunChangesNothing) {
  makeFolder();
  index();
  const auto before = listing(photos);
  const std::string libraryBefore = readFile(library);
  const SRun planned = run("dups " + library + " --move-to " + (dir / "out").string() +
                           " --dry-run");
  EXPECT_EQ(planned.status, 0) << planned.err;
  EXPECT_THAT(planned.out,
              HasSubstr("  ->  " + (dir / "out" / "copies" / "first-q15.jpg").string()));
  EXPECT_THAT(planned.out, HasSubstr("dry run: 3 photos would move"));
  EXPECT_EQ(listing(photos), before);
  EXPECT_EQ(readFile(library), libraryBefore);
  EXPECT_FALSE(fs::exists(dir / "out"));
}

TEST_F(OrvaneToolTest, MoveKilledHalfWayLeavesEveryPhotoRecordedWhereItIs) {
  // Another file system when there is one, so that the copy-and-check path runs.
  const fs::path out = fs::exists("/dev/shm") ? fs::path("/dev/shm") / dir.filename() : dir / "out";
  constexpr int kPhotos = 40;
  const std::string first = save(scene(1, 1600, 1200), photos / "photo-00.png");
  for (int i = 1; i < kPhotos; ++i) {
    fs::copy_file(first, photos / ("photo-" + std::to_string(100 + i).substr(1) + ".png"));
  }
  index();
  const pid_t child = startProgram({ORVANE_TOOL, "dups", library, "--move-to", out}, dir / "log");
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while ((!fs::exists(out) || fs::is_empty(out)) && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  // Killed as the first file lands, which may still be a partial copy that opening removes.
  kill(child, SIGKILL);
  EXPECT_EQ(waitProgram(child), -1) << "the move ended before it was killed";

  ASSERT_EQ(run("info " + library).status, 0);  // opening settles the cut move
  std::set<std::string> present = listing(photos, false);
  present.merge(listing(out, false));
  std::string lines;
  for (const std::string& path : present) lines += path + "|\n";
  EXPECT_EQ(sql(library, "SELECT path FROM photo ORDER BY path"), lines);
  EXPECT_EQ(present.size(), static_cast<size_t>(kPhotos));  // nothing lost, nothing doubled

  const SRun resumed = run("dups " + library + " --move-to " + out.string());
  EXPECT_EQ(resumed.status, 0) << resumed.err;
  EXPECT_EQ(std::distance(fs::directory_iterator(photos), fs::directory_iterator()), 1);
  fs::remove_all(out);
}

// The answer, and the photos reported unreadable, do not depend on what is wrong with a chunk.
TEST_F(OrvaneToolTest, DamagedCacheChunksAreBuiltAgainFromTheSignatures) {
  makeFolder();
  index();
  ASSERT_TRUE(sql(library, "UPDATE photo SET signature = x'4f52' WHERE path LIKE '%first-q15%'"));
  const SRun fresh = run("dups " + library + " --json");  // stores the cache
  ASSERT_EQ(fresh.status, 0) << fresh.err;
  ASSERT_THAT(fresh.err, HasSubstr("1 photos skipped"));
  const std::string damaged = (dir / "damaged.orvane").string();
  for (const char* damage : {
           "UPDATE vectors SET data = substr(data, 1, 100)",
           "UPDATE vectors SET ids = substr(ids, 1, 7)",
           "UPDATE vectors SET ids = x'', data = x''",
           "UPDATE vectors SET ids = CAST(substr(ids, 1, 4) || substr(ids, 1, 16) AS BLOB)",
           "UPDATE vectors SET unreadable = substr(ids, 1, 4)",
           "INSERT INTO vectors VALUES (-1, x'01000000', x'', x'')",
       }) {
    SCOPED_TRACE(damage);
    fs::copy_file(library, damaged, fs::copy_options::overwrite_existing);
    ASSERT_TRUE(sql(damaged, damage));
    const SRun dups = run("dups " + damaged + " --json");
    EXPECT_EQ(dups.out, fresh.out);
    EXPECT_THAT(dups.err, HasSubstr(photo("copies/first-q15.jpg")));
    EXPECT_THAT(dups.err, HasSubstr("1 photos skipped"));
  }
}

// Here the memory is an address-space limit, which the tool must heed as well as the free memory.
TEST_F(OrvaneToolTest, LibraryBeyondTheMemoryIsRefusedBeforeAnyWork) {
#ifdef ORVANE_SANITIZED
  GTEST_SKIP() << "the sanitizers reserve more address space than the limit";
#endif
  save(scene(1, 400, 300), photos / "one.jpg");
  index();
  ASSERT_TRUE(
      sql(library,
          "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 300000) "
          "INSERT INTO photo (path, size, mtime, signature) SELECT 'p' || i, 1, 1, x'00' FROM n"));
  const std::string before = readFile(library);
  for (const std::string& command :
       {"dups " + library, "find " + library + " " + photo("one.jpg")}) {
    SCOPED_TRACE(command);
    const std::string err = (dir / "stderr").string();
    const int raw = std::system(
        ("ulimit -v 700000; " + std::string(ORVANE_TOOL) + " " + command + " >/dev/null 2>" + err)
            .c_str());
    EXPECT_EQ(WEXITSTATUS(raw), 3);
    EXPECT_THAT(readFile(err), ::testing::MatchesRegex("orvane: " + library +
                                                       ": searching 300001 photos needs [0-9]+ MB "
                                                       "of memory, [0-9]+ MB are free\n"));
  }
  EXPECT_EQ(readFile(library), before);
}

// Killed before it moves anything, a dups leaves the photos, the library and the folders as they
// were, whether it was reading signatures into its cache or searching; the next one answers in
// full.
TEST_F(OrvaneToolTest, InterruptedDupsChangesNothing) {
  // 2000 records of one photo: a second of searching, and every one of them to move.
  const std::string first = save(scene(1, 400, 300), photos / "photo.jpg");
  index();
  for (int i = 1; i < 2000; ++i)
    fs::create_hard_link(first, photos / ("copy-" + std::to_string(i) + ".jpg"));
  ASSERT_TRUE(sql(library,
                  "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 1999) "
                  "INSERT INTO photo (path, size, mtime, signature) SELECT '" +
                      photos.string() +
                      "/copy-' || i || '.jpg', size, mtime, signature FROM photo, n"));
  const SRun full = run("dups " + library + " --json");
  ASSERT_EQ(full.status, 0) << full.err;
  const auto folder = listing(photos);
  const char* const kRecords =
      "SELECT id, path, size, mtime, hex(signature) FROM photo; "
      "SELECT * FROM pending_move";
  const auto records = sql(library, kRecords);
  const std::string out = (dir / "out").string();
  const std::string page = (dir / "page.html").string();
  const struct {
    std::vector<const char*> options;
    int signal;
    bool dropCache;
  } cases[] = {
      {{}, SIGKILL, true},
      {{}, SIGINT, false},
      {{"--move-to", out.c_str()}, SIGINT, true},
      {{"--move-to", out.c_str()}, SIGKILL, false},
      {{"--html", page.c_str()}, SIGKILL, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.options.empty() ? "plain" : c.options[0]) + " " +
                 strsignal(c.signal));
    if (c.dropCache) ASSERT_TRUE(sql(library, "DELETE FROM vectors"));
    std::vector<const char*> arguments = {ORVANE_TOOL, "dups", library.c_str()};
    arguments.insert(arguments.end(), c.options.begin(), c.options.end());
    arguments.push_back(nullptr);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      freopen("/dev/null", "w", stdout);
      freopen("/dev/null", "w", stderr);
      execv(ORVANE_TOOL, const_cast<char* const*>(arguments.data()));
      _exit(127);
    }
    // A tenth of a second of processor time in, a tenth of the whole run: under way however
    // busy the machine is.
    for (long ticks = 0; ticks < sysconf(_SC_CLK_TCK) / 10;) {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
      std::istringstream stat(readFile("/proc/" + std::to_string(child) + "/stat"));
      std::string pid, name, state, skipped;
      long user = 0, system = 0;
      stat >> pid >> name >> state;
      for (int field = 4; field < 14; ++field) stat >> skipped;
      if (!(stat >> user >> system) || state == "Z") break;  // it ended
      ticks = user + system;
    }
    kill(child, c.signal);
    int raw = 0;
    waitpid(child, &raw, 0);
    ASSERT_TRUE(WIFSIGNALED(raw)) << "the dups ended before it was interrupted";
    EXPECT_EQ(WTERMSIG(raw), c.signal);
    EXPECT_EQ(listing(photos), folder);
    EXPECT_FALSE(fs::exists(out));
    EXPECT_FALSE(fs::exists(page));
    EXPECT_EQ(sql(library, kRecords), records);
  }
  const SRun again = run("dups " + library + " --json");
  EXPECT_EQ(again.out, full.out);
}

}  // namespace
