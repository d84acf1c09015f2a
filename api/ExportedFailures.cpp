#include "api/ExportedFailures.h"

#include <string>

#include "orvane.h"
#include "signature/AudioSignException.h"

void checkDatabaseType(int databaseType) {
  if (databaseType == 0) throw FID_Exception("database type not yet supported");
  if (databaseType != 1) throw FID_Exception("database type not supported");
}

void rethrowAsFIDException() {
  try {
    throw;
  } catch (const std::string& text) {
    throw FID_Exception(text);
  } catch (...) {
    throw FID_Exception(kUnknownError);
  }
}

void rethrowSignatureFailureAsFIDException() {
  try {
    throw;
  } catch (const AudioSignException& e) {
    throw FID_Exception(e.what());
  } catch (...) {
    rethrowAsFIDException();
  }
}
