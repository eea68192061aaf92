#include "support/TemporaryFolder.h"

#include <stdexcept>

namespace tidewell::test {

URL TemporaryFolder::make() {
  std::string pattern = files::temporaryDirectory().appending("tidewell-test-XXXXXX").path();
  if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp");
  return URL::file(pattern);
}

}  // namespace tidewell::test
