// The fixed texts of the signature layer: what its readers and writers throw or print. They are
// part of the library's interface (hosts and tests compare them), so they live here once and
// nowhere else.
#ifndef ORVANE_SIGNATURE_SIGNATUREMESSAGES_H_
#define ORVANE_SIGNATURE_SIGNATUREMESSAGES_H_

// Meta frames: the first is thrown as a plain std::string, the others go to the error stream.
inline constexpr char kMetaIdLength[] = "ERROR Meta-ID length must be between 1 and 255";
inline constexpr char kMetaNothingToWrite[] = "ERROR no meta data to write!";
inline constexpr char kMetaNotMetaTag[] = "ERROR: not an Meta Tag";
inline constexpr char kMetaParsingTags[] = "ERROR parsing Meta Tags";
inline constexpr char kMetaIndexOutOfRange[] = "ERROR: CMetaVec index out of range (must be < ";
inline constexpr char kMetaFrameNotFound[] = "ERROR: CMetaVec frame not found";

// Signature stream: thrown as plain std::string by value.
inline constexpr char kStreamMismatch[] = "stream mismatch!";
inline constexpr char kIncompatibleVersion[] = "incompatible file version!";
inline constexpr char kKeyMismatch[] = "veryfication key dosn't fit to encryption key!";
inline constexpr char kCannotInitChecking[] =
    "cannot initialise rsa checking! Make sure you have the full lib!";
inline constexpr char kSignatureFailed[] = "signature failed security verification";
inline constexpr char kFileParsingError[] = "file parsing error!";
inline constexpr char kNoDataToWrite[] = "no data to write!";
inline constexpr char kCannotInitSigning[] =
    "cannot initialise rsa signing! Make sure you have the full lib!";
inline constexpr char kEncryptionFailed[] = "encryption failed!";
inline constexpr char kCannotParseWholeStream[] = "cannot parse wholestream!";

// Printed on the standard output, one right after the other, when a hook cannot sign.
inline constexpr char kNoSigningKeyWarning[] =
    "Warning: RSA object loaded but without key for signing.";
inline constexpr char kNotSignedWarning[] = "Fingerprints won't be signed!";

// Signature objects: the messages of AudioSignException.
inline constexpr char kUninitializedSign[] = "Uninitialized CAudioSignMulti object";
inline constexpr char kActiveFeatureMismatch[] = "Active feature not set or type mismatch";
inline constexpr char kNoSignatureEof[] = "no audio signature found in istream (EOF)";
inline constexpr char kCannotOpenStream[] = "could not open audio signature istream";

// Older chunk form: printed on the error stream by its reader.
inline constexpr char kChunkVersionMismatch[] = "Error: stream version mismatch";
inline constexpr char kChunkTuidMismatch[] = "Error: tuid mismatch";
inline constexpr char kChunkFeatParaTwice[] = "FeatPara member already instantiated";
inline constexpr char kChunkNoSubChunk[] = "ERROR no sub chunk found!";
inline constexpr char kChunkVersionRefused[] = "ERROR stream version not compatible";
inline constexpr char kChunkBadFormat[] = "ERROR bad stream or sub chunk format)";
inline constexpr char kChunkMetaMismatch[] = "ERROR meta chunk mismatch)";
inline constexpr char kChunkBadSignatureFrame[] = "Error: bad md5 Signature";
inline constexpr char kChunkForeignKey[] =
    "Error: wrong public key - it's not the correspondent of\n"
    "the used encryption key. Cannot verify signature!";
inline constexpr char kChunkSignatureFailed[] = "Error: signature failed security verification";
inline constexpr char kChunkInvalidTuid[] = "ERROR invalid TUID: use values > 0";
inline constexpr char kChunkSubscript[] = "ERROR container subscript out of range (size=";
inline constexpr char kChunkNoInfo[] = "NO_INFO";

#endif  // ORVANE_SIGNATURE_SIGNATUREMESSAGES_H_
