// Review choices: the file that the review page exports, and the moves it asks for.
//
//   {"orvane": "dups choices", "library": "...",
//    "groups": [[{"path": "...", "keep": true}, {"path": "...", "keep": false}], ...]}
//
// An unticked photo (keep false) is moved; nothing else is. The moves keep the safety rules
// of a planned move: a photo that is not in the library, lies under a reference folder or
// under the move-to folder already, is listed twice, or belongs to a group in which no photo
// is kept, stays where it is and is reported with the reason.
#ifndef ORVANE_TOOLS_REVIEWCHOICES_H_
#define ORVANE_TOOLS_REVIEWCHOICES_H_

#include <string>
#include <vector>

#include "tools/orvane/CPhotoLibrary.h"
#include "tools/orvane/DuplicatePlan.h"

struct SChoiceRefusal {
  std::string path;
  std::string reason;
};

// The moves of the choices in text. Throws CToolError naming file when the text is not a
// choices file. options.moveTo must be set; options.rule plays no part.
std::vector<SPhotoMove> choiceMoves(const std::string& file, const std::string& text,
                                    const std::vector<SStoredPhoto>& photos,
                                    const std::vector<std::string>& indexedFolders,
                                    const SPlanOptions& options,
                                    std::vector<SChoiceRefusal>* refused);

#endif  // ORVANE_TOOLS_REVIEWCHOICES_H_
