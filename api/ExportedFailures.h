// The exported layer's fixed failure texts, and the turning of whatever the layers below
// throw into the one exception a host sees.
#ifndef ORVANE_API_EXPORTEDFAILURES_H_
#define ORVANE_API_EXPORTEDFAILURES_H_

inline constexpr char kUnknownError[] = "Unknown Error";
inline constexpr char kNotYetImplemented[] = "Not yet implemented";

// Database type 1 is the only one built; 0 was announced and never delivered.
// Throws FID_Exception for any other type.
void checkDatabaseType(int databaseType);

// REQUIRES: called inside a catch handler. Rethrows the caught object as an FID_Exception:
// a thrown std::string with its text, anything else as "Unknown Error".
[[noreturn]] void rethrowAsFIDException();

// As rethrowAsFIDException, but an AudioSignException of the signature layer keeps its own
// text too.
[[noreturn]] void rethrowSignatureFailureAsFIDException();

#endif  // ORVANE_API_EXPORTEDFAILURES_H_
