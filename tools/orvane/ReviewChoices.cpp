#include "tools/orvane/ReviewChoices.h"

#include <nlohmann/json.hpp>
#include <set>
#include <unordered_map>

#include "tools/orvane/CToolError.h"

namespace {

using Json = nlohmann::json;

struct SChoice {
  std::string path;
  bool keep;
};

// The groups of the file, each a list of choices; throws when the shape is not that.
std::vector<std::vector<SChoice>> readChoices(const std::string& file, const std::string& text) {
  const Json json = Json::parse(text, nullptr, false);
  const auto refuse = [&file](const std::string& reason) {
    return CToolError(file, "not a choices file of the review page: " + reason);
  };
  if (json.is_discarded()) throw refuse("it is not JSON");
  // Compared as JSON, not read as a string, so that another type is refused rather than thrown.
  if (!json.is_object() || json.find("orvane") == json.end() ||
      *json.find("orvane") != Json("dups choices")) {
    throw refuse("\"orvane\": \"dups choices\" is missing");
  }
  const auto groups = json.find("groups");
  if (groups == json.end() || !groups->is_array()) throw refuse("\"groups\" is not a list");
  std::vector<std::vector<SChoice>> choices;
  for (const Json& group : *groups) {
    if (!group.is_array()) throw refuse("a group is not a list");
    std::vector<SChoice> members;
    for (const Json& photo : group) {
      const auto path = photo.is_object() ? photo.find("path") : photo.end();
      const auto keep = photo.is_object() ? photo.find("keep") : photo.end();
      if (!photo.is_object() || path == photo.end() || !path->is_string() ||
          keep == photo.end() || !keep->is_boolean()) {
        throw refuse("a photo lacks its path or keep");
      }
      members.push_back({path->get<std::string>(), keep->get<bool>()});
    }
    choices.push_back(std::move(members));
  }
  return choices;
}

}  // namespace

std::vector<SPhotoMove> choiceMoves(const std::string& file, const std::string& text,
                                    const std::vector<SStoredPhoto>& photos,
                                    const std::vector<std::string>& indexedFolders,
                                    const SPlanOptions& options,
                                    std::vector<SChoiceRefusal>* refused) {
  std::unordered_map<std::string, int> ids;
  for (const SStoredPhoto& photo : photos) ids.emplace(photo.path, photo.id);
  const std::vector<std::string> moveTo{options.moveTo};

  std::vector<SPhotoMove> moves;
  std::set<std::string> seen;
  for (const std::vector<SChoice>& group : readChoices(file, text)) {
    bool anyKept = false;
    for (const SChoice& choice : group) anyKept = anyKept || choice.keep;
    for (const SChoice& choice : group) {
      if (!seen.insert(choice.path).second) {
        refused->push_back({choice.path, "listed twice; it stays"});
        continue;
      }
      if (choice.keep) continue;
      const auto id = ids.find(choice.path);
      const char* reason = nullptr;
      if (!anyKept) {
        reason = "no photo of its group is ticked to stay; the group stays as it is";
      } else if (id == ids.end()) {
        reason = "not in the library; it stays";
      } else if (isInFolders(choice.path, options.references)) {
        reason = "in a reference folder; it stays";
      } else if (isInFolders(choice.path, moveTo)) {
        reason = "already in the move-to folder";
      }
      if (reason != nullptr) {
        refused->push_back({choice.path, reason});
      } else {
        moves.push_back(
            {id->second, choice.path, moveTarget(choice.path, indexedFolders, options.moveTo)});
      }
    }
  }
  return moves;
}
