// MD5 through libcrypto's digest interface.
#include "platform/md5.h"

#include <openssl/evp.h>

#include <array>
#include <fstream>
#include <memory>

namespace lumeo {

namespace {

struct DigestContext {
  DigestContext() : ctx(EVP_MD_CTX_new()) { EVP_DigestInit_ex(ctx, EVP_md5(), nullptr); }
  ~DigestContext() { EVP_MD_CTX_free(ctx); }
  DigestContext(const DigestContext&) = delete;
  DigestContext& operator=(const DigestContext&) = delete;

  void update(const void* bytes, std::size_t size) { EVP_DigestUpdate(ctx, bytes, size); }
  std::string hex() {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(ctx, digest, &length);
    static const char kDigits[] = "0123456789abcdef";
    std::string out;
    out.reserve(length * 2);
    for (unsigned int i = 0; i < length; ++i) {
      out += kDigits[digest[i] >> 4];
      out += kDigits[digest[i] & 0xf];
    }
    return out;
  }

  EVP_MD_CTX* ctx;
};

}  // namespace

std::string md5Hash(const void* bytes, std::size_t size) {
  DigestContext digest;
  digest.update(bytes, size);
  return digest.hex();
}

std::string md5HashOfPath(const std::filesystem::path& path) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec)) return {};
  std::ifstream in(path, std::ios::binary);
  if (!in) return {};
  DigestContext digest;
  std::array<char, 1 << 16> buffer;
  while (in) {
    in.read(buffer.data(), buffer.size());
    digest.update(buffer.data(), static_cast<std::size_t>(in.gcount()));
  }
  if (in.bad()) return {};
  return digest.hex();
}

}  // namespace lumeo
