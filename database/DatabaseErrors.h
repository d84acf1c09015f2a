// The fixed failure texts of the matching database. They reach the host unchanged inside
// its exception, so they are part of the interface, spelling included.
#ifndef ORVANE_DATABASE_DATABASEERRORS_H_
#define ORVANE_DATABASE_DATABASEERRORS_H_

inline constexpr char kMakeMeansNoSpace[] = "MakeMeans not enough space";
inline constexpr char kWrongFeatureVersion[] = "Wrong Feature Version";
inline constexpr char kAddWithoutInit[] = "addSignature without database initialized";
inline constexpr char kAddUnknownError[] = "addSignature Unknown Error";
inline constexpr char kAddWithoutId[] = "addSignature used without correct id specified";
inline constexpr char kRemoveFromEmpty[] = "Database is emty, item can not be removed";
inline constexpr char kIndexNotFound[] = "Index not found";
inline constexpr char kNoDatabase[] = "No database initialized";
inline constexpr char kClassifyEmptyGroup[] = "classify called to empty database";
inline constexpr char kClassifyError[] = "Error classifing";
inline constexpr char kClassifyWithoutInit[] = "classifyFloat without database initialized";
inline constexpr char kClassifyNoItems[] = "classifyFloat with 0 items in databases";
inline constexpr char kClassifyUnknownError[] = "classifyFloat Error Unknown Error";
inline constexpr char kSocketNotInitialized[] = "socket not initialized";
inline constexpr char kErrorOStreaming[] = "Error OStreaming Database";
inline constexpr char kErrorIStreaming[] = "Error IStreaming Database";
// Written to the error stream, not thrown.
inline constexpr char kGroupNotExist[] = "Feature Group not exist";

#endif  // ORVANE_DATABASE_DATABASEERRORS_H_
