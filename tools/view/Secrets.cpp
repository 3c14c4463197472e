#include "Secrets.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace view {

namespace {

constexpr size_t kMinTokenLength = 16;
constexpr size_t kMaxTokenLength = 128;

bool equal(std::string_view a, std::string_view b) {
  return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

std::string toHex(const unsigned char* bytes, size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    text += "0123456789abcdef"[bytes[i] >> 4];
    text += "0123456789abcdef"[bytes[i] & 15];
  }
  return text;
}

// 128 bits.
std::string newToken() {
  std::array<unsigned char, 16> bytes;
  if (RAND_bytes(bytes.data(), bytes.size()) != 1) throw std::runtime_error("no random numbers");
  return toHex(bytes.data(), bytes.size());
}

class File {
 public:
  File(const std::string& path, int flags) : fd_(open(path.c_str(), flags | O_CLOEXEC, 0600)) {}
  ~File() {
    if (fd_ >= 0) close(fd_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  int fd() const { return fd_; }

 private:
  int fd_;
};

std::runtime_error failure(const std::string& file, const std::string& why) {
  return std::runtime_error("token file " + file + ": " + why);
}

std::string readToken(const std::string& path, int fd) {
  struct stat status {};
  if (fstat(fd, &status) < 0) throw failure(path, std::strerror(errno));
  if ((status.st_mode & S_IRWXO) != 0) throw failure(path, "everybody may use it");
  std::array<char, 256> bytes;
  const ssize_t got = read(fd, bytes.data(), bytes.size());
  if (got < 0) throw failure(path, std::strerror(errno));
  std::string token(bytes.data(), static_cast<size_t>(got));
  while (!token.empty() && (token.back() == '\n' || token.back() == '\r')) token.pop_back();
  for (const char c : token) {
    const bool good = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                      c == '-' || c == '_' || c == '.' || c == '~';
    if (!good) throw failure(path, "a token is letters, digits, '-', '_', '.' and '~'");
  }
  if (token.size() < kMinTokenLength || token.size() > kMaxTokenLength) {
    throw failure(path, "a token has 16 to 128 characters");
  }
  return token;
}

std::string obtainToken(const std::string& path) {
  if (path.empty()) return newToken();
  if (const File file(path, O_RDONLY); file.fd() >= 0) return readToken(path, file.fd());
  if (errno != ENOENT) throw failure(path, std::strerror(errno));
  const File file(path, O_WRONLY | O_CREAT | O_EXCL);
  if (file.fd() < 0) throw failure(path, std::strerror(errno));
  const std::string token = newToken();
  const std::string line = token + "\n";
  if (write(file.fd(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
    throw failure(path, "it can't be written");
  }
  return token;
}

}  // namespace

Secrets::Secrets(const std::string& tokenFile)
    : token_(obtainToken(tokenFile)),
      viewToken_(derive("view token")),
      session_(derive("session")),
      viewSession_(derive("view session")) {}

std::string Secrets::derive(const char* purpose) const {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
  unsigned size = 0;
  if (!HMAC(EVP_sha256(), token_.data(), static_cast<int>(token_.size()),
            reinterpret_cast<const unsigned char*>(purpose), std::strlen(purpose), digest.data(),
            &size)) {
    throw std::runtime_error("no SHA-256");
  }
  return toHex(digest.data(), size / 2);
}

std::optional<std::string> Secrets::open(std::string_view token) const {
  if (equal(token, token_)) return session_;
  if (equal(token, viewToken_)) return viewSession_;
  return std::nullopt;
}

std::optional<Secrets::Access> Secrets::find(std::string_view session) const {
  if (equal(session, session_)) return Access::kFull;
  if (equal(session, viewSession_)) return Access::kViewOnly;
  return std::nullopt;
}

}  // namespace view
