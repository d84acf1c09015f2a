// The orvane tool run as a program, on distinct scenes and changed copies of one of them
// (smaller, low JPEG quality, cropped, mirrored, turned).
#include <signal.h>
#include <sqlite3.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <sstream>

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

// The processor time a process has taken, in clock ticks; -1 once it has ended.
long processorTicks(pid_t pid) {
  std::istringstream stat(readFile("/proc/" + std::to_string(pid) + "/stat"));
  std::string field, state;
  long user = 0, system = 0;
  stat >> field >> field >> state;
  for (int i = 4; i < 14; ++i) stat >> field;
  return stat >> user >> system && state != "Z" ? user + system : -1;
}

class OrvaneToolTest : public ToolTest {
 protected:
  // Scenes 1, 2 and 3, and three changed copies of scene 1.
  void makeFolder() const {
    fs::create_directories(photos / "copies");
    const vips::VImage first = scene(1, 1200, 900);
    save(first, "first.jpg[Q=92]");
    save(scene(2, 1200, 900), "second.png");
    save(scene(3, 900, 1200), "third.jpg[Q=92]");
    save(first.resize(0.5), "copies/first-small.jpg");
    save(first, "copies/first-q15.jpg[Q=15]");
    save(first.crop(30, 20, 1140, 860), "copies/first-cropped.png");
  }

  // The tool started, then stopped by the signal once `ready` holds or a minute has passed;
  // whether it was still running then.
  bool interrupted(std::vector<std::string> arguments, const std::function<bool(pid_t)>& ready,
                   int signal = SIGKILL) const {
    arguments.insert(arguments.begin(), ORVANE_TOOL);
    const pid_t child = startProgram(arguments, dir / "log");
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!ready(child) && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    kill(child, signal);
    return waitProgram(child) == -1;
  }

  // Opened without creating it, so that the tool is the one to make the library.
  int photoRows() const {
    const auto rows = sql(library, "SELECT count(*) FROM photo", SQLITE_OPEN_READWRITE);
    return rows ? std::stoi(*rows) : -1;
  }
};

TEST_F(OrvaneToolTest, IndexSkipsUnchangedFilesAndTakesChangedOnes) {
  makeFolder();
  expectRun({"index", library, photos, "-j", "2"}, 0, "6 added, 0 updated, 0 skipped, 0 failed");
  expectRun({"index", library, photos}, 0, "0 added, 0 updated, 6 skipped");
  save(scene(4, 1200, 900), "second.png");
  fs::last_write_time(photo("second.png"),
                      fs::last_write_time(photo("second.png")) + std::chrono::seconds(5));
  expectRun({"index", library, photos}, 0, "0 added, 1 updated, 5 skipped");
  fs::remove(photo("third.jpg"));
  expectRun({"index", library, photos, "--prune"}, 0, "0 updated, 5 skipped, 0 failed, 1 pruned");
  EXPECT_THAT(expectRun({"info", library}, 0, "photos    5\n").out,
              HasSubstr("Orvane.dll 0.2 000"));
}

TEST_F(OrvaneToolTest, FindAndDupsAnswerWithTheCopiesOfAPhoto) {
  makeFolder();
  index();
  const SRun same = expectRun({"find", library, photo("copies/first-q15.jpg")}, 0);
  const SRun dups = expectRun({"dups", library}, 0);
  EXPECT_THAT(dups.out, ::testing::StartsWith("4 photos:\n"));
  for (const char* copy : {"first.jpg", "copies/first-small.jpg", "copies/first-q15.jpg",
                           "copies/first-cropped.png"}) {
    for (const std::string& out : {same.out, dups.out}) EXPECT_THAT(out, HasSubstr(photo(copy)));
    EXPECT_EQ(dups.out.rfind(photo(copy)), dups.out.find(photo(copy))) << copy << " twice";
  }
  EXPECT_THAT(same.out + dups.out, Not(::testing::AnyOf(HasSubstr("second"), HasSubstr("third"))));
  const std::string stranger = save(scene(7, 1000, 800), "../stranger.jpg");
  expectRun({"find", library, stranger}, 1, "no same photo");
  const SRun nearest = expectRun({"find", library, stranger, "--near", "2"}, 0);
  EXPECT_EQ(std::count(nearest.out.begin(), nearest.out.end(), '\n'), 3) << nearest.out;
  const Json found = Json::parse(
      run({"find", library, photo("second.png"), photo("first.jpg"), "--near", "6", "--json"}).out);
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[1]["photo"], photo("first.jpg"));
  EXPECT_EQ(found[1]["matches"].size(), 6u);
  EXPECT_EQ(found[1]["matches"][0]["path"], photo("first.jpg"));
}

// What a library keeps besides its photos, in an older layout or damaged, does not change the
// answer, nor the photos reported unreadable; the second run reads what the first one stored.
TEST_F(OrvaneToolTest, OlderOrDamagedCachesAnswerAsAFreshLibrary) {
  makeFolder();
  index();
  ASSERT_TRUE(sql(library, "UPDATE photo SET signature = x'4f52' WHERE path LIKE '%first-q15%'"));
  const SRun fresh = expectRun({"dups", library, "--json"}, 0, "", "1 photos skipped");
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
      EXPECT_EQ(expectRun({"dups", copy, "--json"}, 0, "", photo("copies/first-q15.jpg")).out,
                fresh.out);
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

  const SRun indexed =
      expectRun({"index", library, photos, photo("missing.jpg")}, 3,
                "1 added, 0 updated, 0 skipped, 5 failed in ", "notes.jpg: not a photo");
  for (const char* name : {"truncated.jpg", "notes.jpg", "empty.png", "missing.jpg", "thin.png"}) {
    EXPECT_THAT(indexed.err, HasSubstr("orvane: " + photo(name) + ": ")) << name;
  }
  EXPECT_THAT(indexed.err, Not(HasSubstr("readme.txt")));
  for (const char* name : {"notes.jpg", "thin.png"}) {
    // Nothing but the answer on standard output.
    const SRun query = expectRun({"find", library, photo(name), "--json"}, 3, "", photo(name));
    EXPECT_FALSE(Json::parse(query.out)[0]["error"].get<std::string>().empty()) << name;
  }
}

TEST_F(OrvaneToolTest, ForeignOrDamagedLibraryIsRefusedAndLeftAlone) {
  save(scene(1, 800, 600), "good.jpg");
  index();
  const std::string garbage = dir / "garbage.orvane";
  const std::string foreign = dir / "foreign.sqlite";
  const std::string damaged = dir / "damaged.orvane";
  std::ofstream(garbage, std::ios::binary) << std::string(5000, '\x5a');
  ASSERT_TRUE(sql(foreign, "CREATE TABLE photo (x)"));
  // The library with its second page overwritten; the header gives the page size, 1 standing
  // for 65536.
  std::string bytes = readFile(library);
  const std::size_t field =
      static_cast<unsigned char>(bytes.at(16)) << 8 | static_cast<unsigned char>(bytes.at(17));
  const std::size_t pageSize = field == 1 ? 65536 : field;
  ASSERT_GT(bytes.size(), 2 * pageSize);
  std::ofstream(damaged, std::ios::binary) << bytes.replace(pageSize, 4096, 4096, '\xff');

  const std::vector<std::vector<std::string>> every = {
      {"index", photos}, {"find", photo("good.jpg")}, {"dups"}, {"info"}};
  for (const auto& [file, commands] :
       {std::pair{garbage, every}, {foreign, every}, {damaged, {{"index", photos}}}}) {
    const std::string before = readFile(file);
    for (std::vector<std::string> arguments : commands) {
      arguments.insert(arguments.begin() + 1, file);
      expectRun(arguments, 3, "", "orvane: " + file + ": ");
      EXPECT_EQ(readFile(file), before) << arguments[0];
    }
  }
}

TEST_F(OrvaneToolTest, IndexKilledHalfWayLeavesAValidLibrary) {
  // Enough work that the first commit, half a second in, cannot hold it all.
  constexpr int kPhotos = 200;
  const std::string first = save(scene(1, 2400, 1800), "photo-000.jpg");
  for (int i = 1; i < kPhotos; ++i) {
    fs::copy_file(first, photo("photo-" + std::to_string(1000 + i).substr(1) + ".jpg"));
  }
  ASSERT_TRUE(interrupted({"index", library, photos, "-j", "1"}, [this](pid_t) {
    return photoRows() > 0;
  })) << "the index ended before it was killed";
  const int kept = photoRows();
  EXPECT_GT(kept, 0);
  EXPECT_LT(kept, kPhotos);
  expectRun({"info", library}, 0, "photos    " + std::to_string(kept) + "\n");
  expectRun({"find", library, first}, 0);
  expectRun({"index", library, photos}, 0,
            std::to_string(kPhotos - kept) + " added, 0 updated, " + std::to_string(kept) +
                " skipped, 0 failed");
}

TEST_F(OrvaneToolTest, UsageErrorsExitWithTwo) {
  const struct {
    std::vector<std::string> arguments;
    int status;
    std::string err;
  } cases[] = {{{}, 2, ""},
               {{"frobnicate"}, 2, "orvane: frobnicate is not a command"},
               {{"index"}, 2, ""},
               {{"index", library}, 2, ""},
               {{"find", library}, 2, ""},
               {{"find", library, "x.jpg", "--near", "0"},
                2,
                "--near: must be a whole number from 1 to 1000000, not 0"},
               {{"index", library, ".", "-j", "0"}, 2, ""},
               {{"dups", library, "--keep", "biggest"}, 2, ""},
               {{"--help"}, 0, ""},
               {{"find", "--help"}, 0, ""}};
  for (const auto& c : cases) expectRun(c.arguments, c.status, "", c.err);
  EXPECT_FALSE(fs::exists(library));
}

TEST_F(OrvaneToolTest, LibraryKeepsTheDecodeModeItWasMadeWith) {
  // Fast mode decodes this one at half its size.
  const std::string camera = save(scene(3, 2600, 1950), "camera.jpg[Q=90]");
  const std::string fast = (dir / "fast.orvane").string();
  expectRun({"index", fast, photos, "--fast"}, 0);
  index();
  expectRun({"info", fast}, 0, "decoding  fast (index --fast)\n");
  expectRun({"info", library}, 0, "decoding  full\n");
  expectRun({"index", fast, photos}, 3, "",
            fast +
                ": this library was made with --fast; index into it with --fast, or into a "
                "new library file without it");
  expectRun({"index", library, photos, "--fast"}, 3, "",
            library + ": this library was made without --fast");
  // Each library decodes its queries as it decoded its photos: the photo finds itself at 0.
  for (const std::string& made : {fast, library}) {
    const Json found = Json::parse(run({"find", made, camera, "--json"}).out);
    EXPECT_EQ(found[0]["matches"][0]["score"], 0.0) << made;
  }
}

TEST_F(OrvaneToolTest, PhotosAboveThePixelBoundAreDecodedSmallerInBoundedMemory) {
  // 400 megapixels in a megabyte; and one above the bound whose format cannot be decoded at
  // a reduced scale.
  save(vips::VImage::black(20000, 20000), "bomb.png[compression=9]");
  save(vips::VImage::black(12000, 9000), "interlaced.png[interlace]");
  const std::string out = dir / "out";
  struct rusage usage {};
  EXPECT_EQ(waitProgram(startProgram({ORVANE_TOOL, "index", library, photos}, out), &usage), 3);
  // Processor time, which a busy machine does not stretch as it does the clock.
  const double seconds = usage.ru_utime.tv_sec + usage.ru_stime.tv_sec +
                         1e-6 * (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
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
  EXPECT_LT(seconds, 30);
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
  index();

  std::vector<std::string> query = {"find", library, photo("first.jpg"), "--json"};
  ASSERT_EQ(Json::parse(run(query).out)[0]["matches"].size(), 1u);
  query.push_back("--any-orientation");
  const Json any = Json::parse(run(query).out);
  std::map<std::string, std::string> found;
  for (const Json& match : any[0]["matches"]) found[match["path"]] = match["orientation"];
  EXPECT_EQ(found, (std::map<std::string, std::string>{{photo("first.jpg"), "as is"},
                                                       {photo("first-mirrored.png"), "mirrored"},
                                                       {photo("first-turned.jpg"), "turned 90"}}));
  EXPECT_EQ(expectRun({"dups", library}, 1).out, "no duplicates among 5 photos\n");
  const SRun dups = expectRun({"dups", library, "--any-orientation", "-j", "2"}, 0, "3 photos:\n");
  EXPECT_THAT(dups.out, HasSubstr(photo("first-mirrored.png") + "  (mirrored)"));
  EXPECT_THAT(dups.out, Not(HasSubstr("second")));
}

TEST_F(OrvaneToolTest, MoveToMovesTheOthersAndRecordsWhereTheyAre) {
  makeFolder();
  const fs::path reference = dir / "reference";
  fs::create_directories(reference);
  fs::copy_file(photo("second.png"), reference / "second.png");
  fs::copy_file(photo("third.jpg"), reference / "third.jpg");
  index();
  expectRun({"index", library, reference}, 0);
  const fs::path out = dir / "out";
  const auto dups = [&](std::initializer_list<std::string> more) {
    std::vector<std::string> arguments = {"dups", library, "--reference", reference, "--move-to"};
    arguments.insert(arguments.end(), more);
    return arguments;
  };
  const auto before = listing(photos);
  const std::string libraryBefore = readFile(library);
  EXPECT_THAT(expectRun(dups({out, "--dry-run"}), 0, "dry run: 5 photos would move").out,
              HasSubstr("  ->  " + (out / "copies" / "first-q15.jpg").string()));
  EXPECT_EQ(listing(photos), before);
  EXPECT_EQ(readFile(library), libraryBefore);
  EXPECT_FALSE(fs::exists(out));
  for (const std::string& inside : {photo("copies/new"), (reference / "x").string()}) {
    expectRun(dups({inside}), 2, "", "is inside");
    EXPECT_FALSE(fs::exists(inside));
  }

  // Taken already: reported and skipped, and the file there stays as it is.
  fs::create_directories(out / "copies");
  std::ofstream(out / "copies" / "first-q15.jpg") << "someone else's file";
  fs::remove(photo("copies/first-small.jpg"));  // vanished since it was indexed
  const auto referenceListing = listing(reference);
  const SRun moved = expectRun(dups({out}), 3, "3 moved, 2 failed",
                               photo("copies/first-small.jpg") + ": No such file");
  EXPECT_THAT(moved.err, HasSubstr(photo("copies/first-q15.jpg") + ": target exists"));
  EXPECT_EQ(readFile(out / "copies" / "first-q15.jpg"), "someone else's file");
  EXPECT_EQ(listing(reference), referenceListing);
  // The reference copies stay; so do the photos without a copy in them, by the keep rule.
  EXPECT_TRUE(fs::exists(photo("first.jpg")) && fs::exists(photo("copies/first-q15.jpg")));
  for (const char* name : {"second.png", "third.jpg", "copies/first-cropped.png"}) {
    EXPECT_FALSE(fs::exists(photo(name))) << name;
    EXPECT_TRUE(fs::exists(out / name)) << name;
  }
  expectRun({"find", library, reference / "second.png"}, 0, (out / "second.png").string());
  // Photos under the move-to folder take no part any more: first.jpg with first-q15.jpg.
  EXPECT_EQ(Json::parse(run(dups({out, "--json"})).out).size(), 1u);
}

TEST_F(OrvaneToolTest, MoveKilledHalfWayLeavesEveryPhotoRecordedWhereItIs) {
  // Another file system when there is one, so that the copy-and-check path runs.
  const fs::path out = fs::exists("/dev/shm") ? fs::path("/dev/shm") / dir.filename() : dir / "out";
  constexpr int kPhotos = 40;
  const std::string first = save(scene(1, 1600, 1200), "photo-00.png");
  for (int i = 1; i < kPhotos; ++i) {
    fs::copy_file(first, photo("photo-" + std::to_string(100 + i).substr(1) + ".png"));
  }
  index();
  // Killed as the first file lands, which may still be a partial copy that opening removes.
  EXPECT_TRUE(interrupted({"dups", library, "--move-to", out}, [&out](pid_t) {
    return fs::exists(out) && !fs::is_empty(out);
  })) << "the move ended before it was killed";
  expectRun({"info", library}, 0);  // opening settles the cut move
  std::set<std::string> present = listing(photos, false);
  present.merge(listing(out, false));
  std::string lines;
  for (const std::string& path : present) lines += path + "|\n";
  EXPECT_EQ(sql(library, "SELECT path FROM photo ORDER BY path"), lines);
  EXPECT_EQ(present.size(), static_cast<size_t>(kPhotos));  // nothing lost, nothing doubled

  expectRun({"dups", library, "--move-to", out}, 0);
  EXPECT_EQ(std::distance(fs::directory_iterator(photos), fs::directory_iterator()), 1);
  fs::remove_all(out);
}

// Here the memory is an address-space limit, which the tool must heed as well as the free memory.
TEST_F(OrvaneToolTest, LibraryBeyondTheMemoryIsRefusedBeforeAnyWork) {
#ifdef ORVANE_SANITIZED
  GTEST_SKIP() << "the sanitizers reserve more address space than the limit";
#endif
  save(scene(1, 400, 300), "one.jpg");
  index();
  ASSERT_TRUE(
      sql(library,
          "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 300000) "
          "INSERT INTO photo (path, size, mtime, signature) SELECT 'p' || i, 1, 1, x'00' FROM n"));
  const std::string before = readFile(library);
  const std::string out = dir / "limited";
  for (const std::string command : {"dups", "find"}) {
    EXPECT_EQ(runProgram({"prlimit", "--as=716800000", ORVANE_TOOL, command, library,
                          command == "find" ? photo("one.jpg") : "--json"},
                         out),
              3)
        << command;
    EXPECT_THAT(readFile(out + ".err"),
                ::testing::MatchesRegex("orvane: " + library +
                                        ": searching 300001 photos needs "
                                        "[0-9]+ MB of memory, [0-9]+ MB are free\n"));
  }
  EXPECT_EQ(readFile(library), before);
}

// Stopped before it moves anything, a dups leaves the photos, the library and the folders as
// they were, whether it was reading signatures into its cache or searching; the next one
// answers in full.
TEST_F(OrvaneToolTest, InterruptedDupsChangesNothing) {
  // 2000 records of one photo: a second of searching, and every one of them to move.
  const std::string first = save(scene(1, 400, 300), "photo.jpg");
  index();
  for (int i = 1; i < 2000; ++i) {
    fs::create_hard_link(first, photo("copy-" + std::to_string(i) + ".jpg"));
  }
  ASSERT_TRUE(sql(library,
                  "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 1999) "
                  "INSERT INTO photo (path, size, mtime, signature) SELECT '" +
                      photos.string() +
                      "/copy-' || i || '.jpg', size, mtime, signature FROM photo, n"));
  const SRun full = expectRun({"dups", library, "--json"}, 0);
  const auto folder = listing(photos);
  const char* const kRecords =
      "SELECT id, path, size, mtime, hex(signature) FROM photo; SELECT * FROM pending_move";
  const auto records = sql(library, kRecords);
  const std::string out = dir / "out";
  const std::string page = dir / "page.html";
  const struct {
    std::vector<std::string> options;
    int signal;
    bool dropCache;
  } cases[] = {{{}, SIGKILL, true},
               {{}, SIGINT, false},
               {{"--move-to", out}, SIGINT, true},
               {{"--move-to", out}, SIGKILL, false},
               {{"--html", page}, SIGKILL, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE((c.options.empty() ? "plain" : c.options[0]) + " " + strsignal(c.signal));
    if (c.dropCache) {
      ASSERT_TRUE(sql(library, "DELETE FROM vectors"));
    }
    std::vector<std::string> arguments = {"dups", library};
    arguments.insert(arguments.end(), c.options.begin(), c.options.end());
    // A tenth of a second of processor time in, a tenth of the whole run: under way however
    // busy the machine is.
    const auto underWay = [](pid_t child) {
      const long ticks = processorTicks(child);
      return ticks < 0 || ticks >= sysconf(_SC_CLK_TCK) / 10;
    };
    ASSERT_TRUE(interrupted(arguments, underWay, c.signal))
        << "the dups ended before it was interrupted";
    EXPECT_EQ(listing(photos), folder);
    EXPECT_FALSE(fs::exists(out) || fs::exists(page));
    EXPECT_EQ(sql(library, kRecords), records);
  }
  EXPECT_EQ(run({"dups", library, "--json"}).out, full.out);
}

}  // namespace
