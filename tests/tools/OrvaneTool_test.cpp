// The orvane tool run as a program, on distinct scenes and changed copies of one of them
// (smaller, low JPEG quality, cropped, mirrored, turned).
#include <signal.h>
#include <sqlite3.h>

#include <fstream>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>

#include "tests/tools/ToolTest.h"

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;
using Json = nlohmann::json;

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

class OrvaneToolTest : public ToolTest {
 protected:
  // Scenes 1, 2 and 3, and three changed copies of scene 1.
  void makeFolder(bool indexed = true) const {
    fs::create_directories(photos / "copies");
    const vips::VImage first = scene(1, 1200, 900);
    save(first, "first.jpg[Q=92]");
    save(scene(2, 1200, 900), "second.png");
    save(scene(3, 900, 1200), "third.jpg[Q=92]");
    save(first.resize(0.5), "copies/first-small.jpg");
    save(first, "copies/first-q15.jpg[Q=15]");
    save(first.crop(30, 20, 1140, 860), "copies/first-cropped.png");
    if (indexed) run({"index", library, photos}, 0);
  }

  // The tool started, then killed once `ready` holds or a minute has passed; whether it was
  // still running then.
  bool killed(std::vector<std::string> arguments, const std::function<bool()>& ready) const {
    arguments.insert(arguments.begin(), ORVANE_TOOL);
    const pid_t child = startProgram(arguments, dir / "log");
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!ready() && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    kill(child, SIGKILL);
    return waitProgram(child) == -1;
  }

  // Opened without creating it, so that the tool is the one to make the library.
  int photoRows() const {
    const auto rows = sql(library, "SELECT count(*) FROM photo", SQLITE_OPEN_READWRITE);
    return rows ? std::stoi(*rows) : -1;
  }
};

TEST_F(OrvaneToolTest, IndexSkipsUnchangedFilesAndTakesChangedOnes) {
  makeFolder(false);
  run({"index", library, photos, "-j", "2"}, 0, "6 added, 0 updated, 0 skipped, 0 failed");
  run({"index", library, photos}, 0, "0 added, 0 updated, 6 skipped");
  save(scene(4, 1200, 900), "second.png");
  fs::last_write_time(photo("second.png"),
                      fs::last_write_time(photo("second.png")) + std::chrono::seconds(5));
  run({"index", library, photos}, 0, "0 added, 1 updated, 5 skipped");
  fs::remove(photo("third.jpg"));
  run({"index", library, photos, "--prune"}, 0, "0 updated, 5 skipped, 0 failed, 1 pruned");
  EXPECT_THAT(run({"info", library}, 0, "photos    5\n").out, HasSubstr("Orvane.dll 0.2 000"));
}

TEST_F(OrvaneToolTest, FindAndDupsAnswerWithTheCopiesOfAPhoto) {
  makeFolder();
  const SRun same = run({"find", library, photo("copies/first-q15.jpg")}, 0);
  const SRun dups = run({"dups", library}, 0);
  EXPECT_THAT(dups.out, ::testing::StartsWith("4 photos:\n"));
  for (const char* copy : {"first.jpg", "copies/first-small.jpg", "copies/first-q15.jpg",
                           "copies/first-cropped.png"}) {
    for (const std::string& out : {same.out, dups.out}) EXPECT_THAT(out, HasSubstr(photo(copy)));
    EXPECT_EQ(dups.out.rfind(photo(copy)), dups.out.find(photo(copy))) << copy << " twice";
  }
  EXPECT_THAT(same.out + dups.out, Not(::testing::AnyOf(HasSubstr("second"), HasSubstr("third"))));
  const std::string stranger = save(scene(7, 1000, 800), "../stranger.jpg");
  run({"find", library, stranger}, 1, "no same photo");
  const Json found = Json::parse(
      run({"find", library, stranger, photo("first.jpg"), "--near", "2", "--json"}, 0).out);
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[1]["photo"], photo("first.jpg"));
  EXPECT_EQ(found[1]["matches"].size(), 2u);
  EXPECT_EQ(found[1]["matches"][0]["path"], photo("first.jpg"));
}

// What a library keeps besides its photos, in an older layout or damaged, does not change the
// answer, nor the photos reported unreadable; the second run reads what the first one stored.
TEST_F(OrvaneToolTest, OlderOrDamagedCachesAnswerAsAFreshLibrary) {
  makeFolder();
  ASSERT_TRUE(sql(library, "UPDATE photo SET signature = x'4f52' WHERE path LIKE '%first-q15%'"));
  const SRun fresh = run({"dups", library, "--json"}, 0, "", "1 photos skipped");
  const std::string copy = (dir / "copy.orvane").string();
  for (const char* change :
       {// Layout 1, before the vectors cache: a change counter and a saved database stream.
        "DROP TABLE vectors; CREATE TABLE counter (generation INTEGER NOT NULL); "
        "INSERT INTO counter VALUES (0); "
        "CREATE TABLE cache (generation INTEGER NOT NULL, stream BLOB NOT NULL); "
        "INSERT INTO cache VALUES (6, x'0000'); PRAGMA user_version = 1",
        "DELETE FROM vectors", "UPDATE vectors SET data = substr(data, 1, 100)",
        "UPDATE vectors SET ids = substr(ids, 1, 7)", "UPDATE vectors SET ids = x'', data = x''",
        "UPDATE vectors SET ids = CAST(substr(ids, 1, 4) || substr(ids, 1, 16) AS BLOB)",
        "UPDATE vectors SET unreadable = substr(ids, 1, 4)",
        "INSERT INTO vectors VALUES (-1, x'01000000', x'', x'')"}) {
    SCOPED_TRACE(change);
    fs::copy_file(library, copy, fs::copy_options::overwrite_existing);
    ASSERT_TRUE(sql(copy, change));
    for (int again = 0; again < 2; ++again) {
      EXPECT_EQ(run({"dups", copy, "--json"}, 0, "", photo("copies/first-q15.jpg")).out, fresh.out);
    }
  }
}

TEST_F(OrvaneToolTest, BadPhotosAreReportedAndSkipped) {
  const std::string jpeg = readFile(save(scene(1, 800, 600), "good.jpg"));
  std::ofstream(photo("truncated.jpg"), std::ios::binary) << jpeg.substr(0, jpeg.size() / 2);
  std::ofstream(photo("notes.jpg")) << "not a photo\n";
  std::ofstream(photo("empty.png"));
  std::ofstream(photo("readme.txt")) << "not looked at: no photo extension\n";
  save(scene(2, 1000, 3), "thin.png");  // too thin to fit the library's working box

  const SRun indexed = run({"index", library, photos, photo("missing.jpg")}, 3,
                           "1 added, 0 updated, 0 skipped, 5 failed in ", "notes.jpg: not a photo");
  for (const char* name : {"truncated.jpg", "notes.jpg", "empty.png", "missing.jpg", "thin.png"}) {
    EXPECT_THAT(indexed.err, HasSubstr("orvane: " + photo(name) + ": ")) << name;
  }
  EXPECT_THAT(indexed.err, Not(HasSubstr("readme.txt")));
  for (const char* name : {"notes.jpg", "thin.png"}) {
    // Nothing but the answer on standard output.
    const SRun query = run({"find", library, photo(name), "--json"}, 3, "", photo(name));
    EXPECT_FALSE(Json::parse(query.out)[0]["error"].get<std::string>().empty()) << name;
  }
}

TEST_F(OrvaneToolTest, ForeignOrDamagedLibraryIsRefusedAndLeftAlone) {
  save(scene(1, 800, 600), "good.jpg");
  run({"index", library, photos}, 0);
  const std::string garbage = dir / "garbage.orvane";
  const std::string foreign = dir / "foreign.sqlite";
  const std::string damaged = dir / "damaged.orvane";
  std::ofstream(garbage, std::ios::binary) << std::string(5000, '\x5a');
  ASSERT_TRUE(sql(foreign, "CREATE TABLE photo (x)"));
  // The library with its second page (of 64 KiB) overwritten.
  std::string bytes = readFile(library);
  ASSERT_GT(bytes.size(), 2 * 65536u);
  std::ofstream(damaged, std::ios::binary) << bytes.replace(65536, 4096, 4096, '\xff');

  const std::vector<std::vector<std::string>> every = {
      {"index", photos}, {"find", photo("good.jpg")}, {"dups"}, {"info"}};
  for (const auto& [file, commands] :
       {std::pair{garbage, every}, {foreign, every}, {damaged, {{"index", photos}}}}) {
    const std::string before = readFile(file);
    for (std::vector<std::string> arguments : commands) {
      arguments.insert(arguments.begin() + 1, file);
      run(arguments, 3, "", "orvane: " + file + ": ");
      EXPECT_EQ(readFile(file), before) << arguments[0];
    }
  }
}

TEST_F(OrvaneToolTest, UsageErrorsExitWithTwo) {
  const struct {
    std::vector<std::string> arguments;
    int status;
    std::string err;
  } cases[] = {{{}, 2, ""},
               {{"frobnicate"}, 2, "orvane: frobnicate is not a command"},
               {{"find", library, "x.jpg", "--near", "1000000"}, 3, "no such library"},
               {{"find", library, "x.jpg", "--near", "0"},
                2,
                "--near: must be a whole number from 1 to 1000000, not 0"},
               {{"dups", library, "--keep", "biggest"}, 2, ""},
               {{"find", "--help"}, 0, ""}};
  for (const auto& c : cases) run(c.arguments, c.status, "", c.err);
  EXPECT_FALSE(fs::exists(library));
}

TEST_F(OrvaneToolTest, LibraryKeepsTheDecodeModeItWasMadeWith) {
  // Fast mode decodes this one at half its size.
  const std::string camera = save(scene(3, 2600, 1950), "camera.jpg[Q=90]");
  const std::string fast = (dir / "fast.orvane").string();
  run({"index", fast, photos, "--fast"}, 0);
  run({"index", library, photos}, 0);
  run({"info", fast}, 0, "decoding  fast (index --fast)\n");
  run({"info", library}, 0, "decoding  full\n");
  run({"index", fast, photos}, 3, "",
      fast +
          ": this library was made with --fast; index into it with --fast, or into a "
          "new library file without it");
  run({"index", library, photos, "--fast"}, 3, "",
      library + ": this library was made without --fast");
  // Queries are decoded as the library's photos were: the photo finds itself at 0.
  EXPECT_EQ(Json::parse(run({"find", fast, camera, "--json"}, 0).out)[0]["matches"][0]["score"],
            0.0);
}

TEST_F(OrvaneToolTest, PhotosAboveThePixelBoundAreDecodedSmallerInBoundedMemory) {
  // 400 megapixels in a megabyte; and one above the bound whose format cannot be decoded at
  // a reduced scale.
  save(vips::VImage::black(20000, 20000), "bomb.png[compression=9]");
  save(vips::VImage::black(12000, 9000), "interlaced.png[interlace]");
  const std::string out = dir / "out";
  struct rusage usage {};
  EXPECT_EQ(waitProgram(startProgram({ORVANE_TOOL, "index", library, photos}, out), &usage), 3);
  EXPECT_THAT(readFile(out), HasSubstr("1 added, 0 updated, 0 skipped, 1 failed"));
  const std::string err = readFile(out + ".err");
  EXPECT_THAT(err, HasSubstr(photo("bomb.png") +
                             ": 20000 x 20000 pixels, more than 100 megapixels: indexed from a "
                             "decode at 10000 x 10000"));
  EXPECT_THAT(err, HasSubstr(photo("interlaced.png") +
                             ": 12000 x 9000 pixels, more than 100 megapixels, in a progressive "
                             "or interlaced format"));
  // The bounded photo's 300 MB of pixels and little else; a whole decode takes 1.2 GB.
  EXPECT_LT(usage.ru_maxrss, 600 * 1024) << "kilobytes";
}

TEST_F(OrvaneToolTest, MirroredAndTurnedCopiesAreFoundInAnyOrientation) {
  // Dark on the left, bright on the right: a mirror image is no longer the same photo.
  const vips::VImage ramp = vips::VImage::xyz(1200, 900)[0] / 1200.0 * 0.8 + 0.2;
  const vips::VImage first = (scene(1, 1200, 900) * ramp).cast(VIPS_FORMAT_UCHAR);
  save(first, "first.jpg[Q=92]");
  // Large enough to be made smaller before dups turns it.
  save(first.resize(1.8).fliphor(), "first-mirrored.png");
  save(first.rot90(), "first-turned.jpg[Q=92]");
  save(scene(2, 1200, 900), "second.jpg[Q=92]");
  save(scene(3, 900, 1200), "third.jpg[Q=92]");
  run({"index", library, photos}, 0);

  std::vector<std::string> query = {"find", library, photo("first.jpg"), "--json"};
  ASSERT_EQ(Json::parse(run(query, 0).out)[0]["matches"].size(), 1u);
  query.push_back("--any-orientation");
  const Json any = Json::parse(run(query, 0).out);
  std::map<std::string, std::string> found;
  for (const Json& match : any[0]["matches"]) found[match["path"]] = match["orientation"];
  EXPECT_EQ(found, (std::map<std::string, std::string>{{photo("first.jpg"), "as is"},
                                                       {photo("first-mirrored.png"), "mirrored"},
                                                       {photo("first-turned.jpg"), "turned 90"}}));
  EXPECT_EQ(run({"dups", library}, 1).out, "no duplicates among 5 photos\n");
  const SRun dups = run({"dups", library, "--any-orientation", "-j", "2"}, 0, "3 photos:\n");
  EXPECT_THAT(dups.out, HasSubstr(photo("first-mirrored.png") + "  (mirrored)"));
}

TEST_F(OrvaneToolTest, MoveToMovesTheOthersAndRecordsWhereTheyAre) {
  makeFolder();
  const fs::path reference = dir / "reference";
  fs::create_directories(reference);
  fs::copy_file(photo("second.png"), reference / "second.png");
  fs::copy_file(photo("third.jpg"), reference / "third.jpg");
  run({"index", library, reference}, 0);
  run({"index", library, photo("copies")}, 0);  // moves keep the outer folder's layout
  const fs::path out = dir / "out";
  const auto dups = [&](std::initializer_list<std::string> more) {
    std::vector<std::string> arguments = {"dups", library, "--reference", reference, "--move-to"};
    arguments.insert(arguments.end(), more);
    return arguments;
  };
  const std::string libraryBefore = readFile(library);
  EXPECT_THAT(run(dups({out, "--dry-run"}), 0, "dry run: 5 photos would move").out,
              HasSubstr("  ->  " + (out / "copies" / "first-q15.jpg").string()));
  EXPECT_EQ(readFile(library), libraryBefore);
  EXPECT_FALSE(fs::exists(out));
  for (const std::string& inside : {photo("copies/new"), (reference / "x").string()}) {
    run(dups({inside}), 2, "", "is inside");
    EXPECT_FALSE(fs::exists(inside));
  }

  // Taken already: reported and skipped, and the file there stays as it is.
  fs::create_directories(out / "copies");
  std::ofstream(out / "copies" / "first-q15.jpg") << "someone else's file";
  fs::remove(photo("copies/first-small.jpg"));  // vanished since it was indexed
  const SRun moved =
      run(dups({out}), 3, "3 moved, 2 failed", photo("copies/first-small.jpg") + ": No such file");
  EXPECT_THAT(moved.err, HasSubstr(photo("copies/first-q15.jpg") + ": target exists"));
  EXPECT_EQ(readFile(out / "copies" / "first-q15.jpg"), "someone else's file");
  // The reference copies stay; so do the photos without a copy in them, by the keep rule.
  EXPECT_TRUE(fs::exists(photo("first.jpg")) && fs::exists(photo("copies/first-q15.jpg")));
  for (const char* name : {"second.png", "third.jpg", "copies/first-cropped.png"}) {
    EXPECT_FALSE(fs::exists(photo(name))) << name;
    EXPECT_TRUE(fs::exists(out / name)) << name;
  }
  run({"find", library, reference / "second.png"}, 0, (out / "second.png").string());
  // Photos under the move-to folder take no part any more: first.jpg with first-q15.jpg.
  EXPECT_EQ(Json::parse(run(dups({out, "--json"}), 3).out).size(), 1u);
}

// Killed half way, an index keeps the photos it has committed and a move leaves every photo
// recorded where it is; the next run finishes the work.
TEST_F(OrvaneToolTest, KilledIndexOrMoveLeavesEveryPhotoRecordedWhereItIs) {
  // Another file system when there is one, so that the copy-and-check path runs.
  const fs::path out = fs::exists("/dev/shm") ? fs::path("/dev/shm") / dir.filename() : dir / "out";
  constexpr int kPhotos = 40;
  const std::string first = save(scene(1, 1600, 1200), "photo-00.png");
  for (int i = 1; i < kPhotos; ++i) {
    fs::copy_file(first, photo("photo-" + std::to_string(100 + i).substr(1) + ".png"));
  }
  ASSERT_TRUE(killed({"index", library, photos, "-j", "1"}, [this] { return photoRows() > 0; }))
      << "the index ended before it was killed";
  const int kept = photoRows();
  EXPECT_LT(kept, kPhotos);
  run({"index", library, photos}, 0,
      std::to_string(kPhotos - kept) + " added, 0 updated, " + std::to_string(kept) +
          " skipped, 0 failed");
  // Killed as the first file lands, which may still be a partial copy that opening removes.
  EXPECT_TRUE(killed({"dups", library, "--move-to", out}, [&out] {
    return fs::exists(out) && !fs::is_empty(out);
  })) << "the move ended before it was killed";
  run({"info", library}, 0);  // opening settles the cut move
  std::set<std::string> present;
  for (const fs::path& folder : {photos, out}) {
    for (const auto& entry : fs::recursive_directory_iterator(folder)) present.insert(entry.path());
  }
  std::string lines;
  for (const std::string& path : present) lines += path + "|\n";
  EXPECT_EQ(sql(library, "SELECT path FROM photo ORDER BY path"), lines);
  EXPECT_EQ(present.size(), static_cast<size_t>(kPhotos));  // nothing lost, nothing doubled

  run({"dups", library, "--move-to", out}, 0);
  EXPECT_EQ(std::distance(fs::directory_iterator(photos), fs::directory_iterator()), 1);
  fs::remove_all(out);
}

// Here the memory is an address-space limit, which the tool must heed as well as the free memory.
TEST_F(OrvaneToolTest, LibraryBeyondTheMemoryIsRefusedBeforeAnyWork) {
#ifdef ORVANE_SANITIZED
  GTEST_SKIP() << "the sanitizers reserve more address space than the limit";
#endif
  save(scene(1, 400, 300), "one.jpg");
  run({"index", library, photos}, 0);
  ASSERT_TRUE(
      sql(library,
          "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 300000) "
          "INSERT INTO photo (path, size, mtime, signature) SELECT 'p' || i, 1, 1, x'00' FROM n"));
  const std::string before = readFile(library);
  const std::string out = dir / "limited";
  EXPECT_EQ(runProgram({"prlimit", "--as=716800000", ORVANE_TOOL, "dups", library}, out), 3);
  EXPECT_THAT(readFile(out + ".err"),
              ::testing::MatchesRegex("orvane: " + library +
                                      ": searching 300001 photos needs "
                                      "[0-9]+ MB of memory, [0-9]+ MB are free\n"));
  EXPECT_EQ(readFile(library), before);
}

}  // namespace
