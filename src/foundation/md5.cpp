#include "foundation/md5.h"

#include <openssl/evp.h>


namespace Tincta {

struct COvMD5::SContext {
  EVP_MD_CTX* ctx = EVP_MD_CTX_new();
  ~SContext() { EVP_MD_CTX_free(ctx); }
};

COvMD5::COvMD5() : context_(std::make_unique<SContext>()) {
  // Without a context every digest comes out as zeros; libcrypto fails here only without memory.
  if (context_->ctx && EVP_DigestInit_ex(context_->ctx, EVP_md5(), nullptr) != 1) {
    EVP_MD_CTX_free(context_->ctx);
    context_->ctx = nullptr;
  }
}

COvMD5::~COvMD5() = default;

void COvMD5::Update(const void* bytes, size_t count) {
  if (context_->ctx && count != 0) EVP_DigestUpdate(context_->ctx, bytes, count);
}

Md5Digest COvMD5::Finish() {
  Md5Digest digest{};
  unsigned int length = 0;
  if (context_->ctx) EVP_DigestFinal_ex(context_->ctx, digest.data(), &length);
  return digest;
}

Md5Digest Md5Of(const void* bytes, size_t count) {
  COvMD5 md5;
  md5.Update(bytes, count);
  return md5.Finish();
}

}  // namespace Tincta
