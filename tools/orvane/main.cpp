// orvane: finds the same photo in a photo folder.
//
//   orvane index LIBRARY PATH... [-j N] [--prune] [--fast]
//   orvane find LIBRARY PHOTO... [--near N] [--any-orientation] [--json] [-j N]
//   orvane dups LIBRARY [--any-orientation] [-j N] [--keep RULE] [--reference DIR]...
//                       [--move-to DIR [--dry-run]] [--json] [--html PAGE]
//   orvane dups LIBRARY --apply CHOICES --move-to DIR [--reference DIR]... [--dry-run]
//   orvane info LIBRARY
//
// Exit status: 0 success, 1 a search found nothing, 2 usage error, 3 I/O or library error, or
// a photo that could not be used.
#include <orvane.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <map>
#include <thread>

#include "tools/orvane/CToolError.h"
#include "tools/orvane/Commands.h"
#include "tools/orvane/PhotoDecoder.h"

namespace {

// A count of 1 or more, said in words when it is not one.
const CLI::Validator kAtLeastOne(
    [](std::string& text) {
      unsigned long value = 0;
      std::size_t used = 0;
      try {
        value = std::stoul(text, &used);
      } catch (const std::exception&) {
        used = 0;
      }
      const bool whole = used == text.size() && used > 0 && text[0] != '-' && text[0] != '+';
      return whole && value >= 1 && value <= 1'000'000 ? std::string()
                                                       : "must be a whole number from 1 to "
                                                         "1000000, not " + text;
    },
    "1 or more");

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"orvane: finds the same photo in a photo folder.", "orvane"};
  app.footer(
      "Exit status: 0 success, 1 a search found nothing, 2 usage error, 3 I/O or library "
      "error, or a photo that could not be used (the others are still done).");
  app.require_subcommand(1);

  std::string library;
  const auto addLibrary = [&library](CLI::App* command) {
    command->add_option("LIBRARY", library, "library file (SQLite)")->required();
  };
  bool json = false;
  bool anyOrientation = false;
  const char* const anyOrientationHelp =
      "also photos that are mirrored or turned by 90, 180 or 270 degrees; the answer says "
      "which orientation matched. Eight orientations give a wrong photo more chances: among "
      "the 30 pictures of Debian's mate-backgrounds (mostly drawn patterns), 12 of the 864 "
      "ordered pairs of different pictures counted as the same photo with this option, 6 "
      "without it (none of the 132 pairs of its 12 photographs, either way)";

  SIndexOptions index;
  index.jobs = std::max(1u, std::thread::hardware_concurrency());
  CLI::App* indexCommand = app.add_subcommand(
      "index", "Add the photos of files and folders to the library (made if missing); unchanged "
               "files are skipped.");
  indexCommand->footer(
      "Photos of more than " + std::to_string(kMaxDecodedPixels / 1'000'000) +
      " megapixels are decoded at a reduced scale, line by line, and said so: a worker holds "
      "at most " + std::to_string(kMaxDecodedPixels * 3 / 1'000'000) +
      " MB of decoded pixels (twice that for a photo its EXIF orientation turns). Such photos "
      "in progressive, interlaced or other formats that cannot be decoded that way are "
      "refused.\n"
      "Photos that cannot be used are reported and skipped; the run goes on and ends with exit "
      "status 3.");
  addLibrary(indexCommand);
  indexCommand->add_option("PATH", index.paths, "photo files and folders, walked recursively")
      ->required();
  indexCommand->add_option("-j,--jobs", index.jobs, "photos worked on at once (default: all cores)")
      ->check(kAtLeastOne);
  indexCommand->add_flag("--prune", index.prune, "drop photos whose files are gone");
  indexCommand->add_flag(
      "--fast", index.fast,
      "decode large JPEG and WebP photos at 1/2, 1/4 or 1/8 scale, keeping the longer side at " +
          std::to_string(kFastLongerSide) +
          " pixels or more: a quarter less time on 12-megapixel photos, scores differ slightly. "
          "A library is made either with --fast or without it, and stays so");
  indexCommand->add_flag("--timings", index.timings,
                         "also print the time spent decoding and extracting");

  SFindOptions find;
  find.jobs = index.jobs;
  CLI::App* findCommand = app.add_subcommand(
      "find", "Show the stored photos that are the same photo as PHOTO, or the N nearest.");
  addLibrary(findCommand);
  findCommand->add_option("PHOTO", find.photos, "photos to look for")->required();
  findCommand->add_option("--near", find.near, "the N nearest photos instead of the same photo")
      ->check(kAtLeastOne);
  findCommand->add_option("-j,--jobs", find.jobs, "threads of the search (default: all cores)")
      ->check(kAtLeastOne);
  findCommand->add_flag("--any-orientation", anyOrientation, anyOrientationHelp);
  findCommand->add_flag("--json", json, "answer in JSON");

  SDupsOptions dups;
  CLI::App* dupsCommand = app.add_subcommand(
      "dups", "List groups of stored photos that count as the same photo, each member marked "
              "keep or move; with --move-to, move the others out of the way.");
  addLibrary(dupsCommand);
  dupsCommand->add_flag("--json", json, "answer in JSON");
  dupsCommand->add_flag("--any-orientation", anyOrientation,
                        std::string(anyOrientationHelp) +
                            " (against its closest photo in the group). Every photo is "
                            "decoded again (at a reduced scale), which takes about as long "
                            "as indexing it");
  dups.jobs = index.jobs;
  dupsCommand
      ->add_option("-j,--jobs", dups.jobs,
                   "threads of the search, and photos decoded at once (default: all cores)")
      ->check(kAtLeastOne);
  const std::map<std::string, EKeepRule> keepRules{{"pixels", EKeepRule::kPixels},
                                                   {"largest", EKeepRule::kLargest},
                                                   {"newest", EKeepRule::kNewest},
                                                   {"oldest", EKeepRule::kOldest}};
  std::string keepRule = "pixels";
  dupsCommand
      ->add_option("--keep", keepRule,
                   "the photo of each group that stays: pixels (most pixels, then the largest "
                   "file; the default), largest (file size), newest or oldest (modification "
                   "time); ties go to the shorter path, then the alphabetically first")
      ->type_name("RULE")
      ->check(CLI::IsMember(keepRules).description(""));
  dupsCommand
      ->add_option("--reference", dups.references,
                   "a folder whose photos always stay and never move; a group is listed only "
                   "if it holds a photo outside these folders (repeatable)")
      ->type_name("DIR");
  dupsCommand
      ->add_option("--move-to", dups.moveTo,
                   "move the photos marked move into DIR, at their path relative to the folder "
                   "they were indexed from, and record their new paths in the library; never "
                   "overwrites or deletes a file; DIR must not lie inside an indexed or a "
                   "reference folder. A move that fails is reported and skipped, and the run "
                   "exits with 3")
      ->type_name("DIR");
  dupsCommand->add_flag("--dry-run", dups.dryRun, "show what --move-to would do; change nothing");
  dupsCommand
      ->add_option("--html", dups.html,
                   "also write a review page: one self-contained HTML file with thumbnails of "
                   "every group, to look at in a browser offline; it exports the photos you "
                   "tick to keep as a choices file for --apply. With --move-to only together with "
                   "--dry-run")
      ->type_name("PAGE");
  dupsCommand
      ->add_option("--apply", dups.apply,
                   "move the photos that a choices file exported by the review page leaves "
                   "unticked into the --move-to folder, with the same safety rules; nothing "
                   "else moves")
      ->type_name("CHOICES")
      ->needs("--move-to")
      ->excludes("--html", "--any-orientation", "--json", "--keep");

  CLI::App* infoCommand =
      app.add_subcommand("info", "Show the number of photos, how they were decoded, the file "
                                 "size and the version.");
  addLibrary(infoCommand);

  const auto named = [&argv](CLI::App* command) { return command->get_name() == argv[1]; };
  if (argc > 1 && argv[1][0] != '-' && app.get_subcommands(named).empty()) {
    std::fprintf(stderr, "orvane: %s is not a command; the commands are index, find, dups and "
                         "info (orvane --help)\n", argv[1]);
    return kExitUsage;
  }
  try {
    // Given without the program's path, so that usage lines say "orvane"; CLI11 takes them
    // last first.
    std::vector<std::string> arguments(argv + 1, argv + argc);
    std::reverse(arguments.begin(), arguments.end());
    app.parse(arguments);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? kExitSuccess : kExitUsage;
  }

  try {
    CDecoderSession decoder(argv[0]);
    if (indexCommand->parsed()) {
      index.library = library;
      return runIndex(index);
    }
    if (findCommand->parsed()) {
      find.library = library;
      find.json = json;
      find.anyOrientation = anyOrientation;
      return runFind(find);
    }
    if (dupsCommand->parsed()) {
      dups.library = library;
      dups.keep = keepRules.at(keepRule);
      dups.json = json;
      dups.anyOrientation = anyOrientation;
      return runDups(dups);
    }
    return runInfo(library);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "orvane: %s\n", e.what());
    return kExitFailure;
  }
}
