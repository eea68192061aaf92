// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/Digest.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <vector>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell {
namespace {

constexpr std::int64_t pieceBytes = 1 << 20;

/// OpenSSL would take itself down at exit, while a worker thread of ours may still hash or has yet to hand
/// back what the library keeps for each thread.
void keepLibraryUntilTheEnd() {
  [[maybe_unused]] static const bool done = OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) == 1;
}

class SHA256 {
 public:
  SHA256() {
    keepLibraryUntilTheEnd();
    context_.reset(EVP_MD_CTX_new());
    if (!context_ || EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) != 1) fail();
  }
  void update(const void* data, std::size_t size) {
    if (EVP_DigestUpdate(context_.get(), data, size) != 1) fail();
  }
  std::string hexadecimal() {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (EVP_DigestFinal_ex(context_.get(), digest, &size) != 1) fail();
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (unsigned int i = 0; i < size; ++i) {
      text.push_back(digits[digest[i] >> 4]);
      text.push_back(digits[digest[i] & 0x0F]);
    }
    return text;
  }

 private:
  [[noreturn]] static void fail() { throw std::runtime_error("SHA-256"); }
  struct Free {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
  };
  std::unique_ptr<EVP_MD_CTX, Free> context_;
};

}  // namespace

std::string hash(const URL& url) {
  const Descriptor file = files::openForReading(url);
  struct stat info {};
  const bool known = fstat(file.get(), &info) == 0 && info.st_size >= 0;
  const auto read = [&](char* to, std::size_t size) { return files::readFully(file.get(), to, size, url); };
  return hash(read, known ? info.st_size : pieceBytes);
}

std::string hash(const PieceReader& read, std::int64_t expected) {
  SHA256 digest;
  // No more than is needed: most batches are many small files.
  std::vector<char> buffer(static_cast<std::size_t>(std::min(pieceBytes, expected + 1)));
  while (const std::size_t count = read(buffer.data(), buffer.size())) digest.update(buffer.data(), count);
  return digest.hexadecimal();
}

std::string copyAndHash(const URL& from, const URL& to) {
  SHA256 digest;
  const bool isSeen =
      files::copyItem(from, to, [&](std::string_view data) { digest.update(data.data(), data.size()); });
  try {
    return isSeen ? digest.hexadecimal() : hash(to);
  } catch (...) {
    files::removeItemIfPossible(to);
    throw;
  }
}

std::string hash(std::string_view bytes) {
  SHA256 digest;
  digest.update(bytes.data(), bytes.size());
  return digest.hexadecimal();
}

std::int64_t fileSize(const URL& url) {
  struct stat info {};
  if (stat(url.path().c_str(), &info) != 0) throw FileError("读取", url.path(), errno);
  return info.st_size;
}

}  // namespace tidewell
