// Password hashes through the libraries made for them: crypt() with MD5 salts (libcrypt) for
// the shadow file; DES and MD4 (nettle) for the file-sharing service's LAN Manager and NT
// hashes.
#include <crypt.h>
#include <nettle/des.h>
#include <nettle/md4.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "core/alloc.h"
#include "unicode/unicode_internal.h"
#include "user/user_internal.h"

char KOVAUserRandomNumMap2Seed(long lNum) {
    static constexpr char kSeeds[] =
        "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz./";
    const long n = lNum < 0 ? -(lNum % 64) : lNum % 64;
    return kSeeds[n];
}

namespace kova::user {
namespace {

constexpr char kMd5Prefix[] = "$1$";
constexpr size_t kSaltSize = 32;
constexpr size_t kMinKeptSalt = 12;  // "$1$" and more than this: an MD5 hash, salt kept

void fresh_salt(char (&salt)[kSaltSize]) {
    const long t = static_cast<long>(time(nullptr));
    snprintf(salt, sizeof salt, "%s%c%c", kMd5Prefix, KOVAUserRandomNumMap2Seed(t),
             KOVAUserRandomNumMap2Seed(t + 10));
}

// head and then tail, cut where the salt buffer ends.
void set_salt(char (&salt)[kSaltSize], const char *head, const char *tail) {
    const size_t head_len = strnlen(head, kSaltSize - 1);
    memcpy(salt, head, head_len);
    const size_t tail_len = strnlen(tail, kSaltSize - 1 - head_len);
    memcpy(salt + head_len, tail, tail_len);
    salt[head_len + tail_len] = '\0';
}

void salt_from(const char *previous, char (&salt)[kSaltSize]) {
    if (previous == nullptr || previous[0] == '\0') return fresh_salt(salt);
    const char *md5 = strstr(previous, kMd5Prefix);
    if (md5 != nullptr && strlen(md5) > kMinKeptSalt) return set_salt(salt, md5, "");
    set_salt(salt, kMd5Prefix, previous);
}

void to_hex(const uint8_t *bytes, size_t n, char *out) {
    for (size_t i = 0; i < n; ++i)
        snprintf(out + 2 * i, 3, "%02X", bytes[i]);
}

// Seven bytes spread over the eight bytes of a DES key (the low bit of each is parity).
void des_key_from(const uint8_t *in, uint8_t (&key)[DES_KEY_SIZE]) {
    key[0] = in[0] >> 1;
    key[1] = static_cast<uint8_t>(((in[0] & 0x01) << 6) | (in[1] >> 2));
    key[2] = static_cast<uint8_t>(((in[1] & 0x03) << 5) | (in[2] >> 3));
    key[3] = static_cast<uint8_t>(((in[2] & 0x07) << 4) | (in[3] >> 4));
    key[4] = static_cast<uint8_t>(((in[3] & 0x0F) << 3) | (in[4] >> 5));
    key[5] = static_cast<uint8_t>(((in[4] & 0x1F) << 2) | (in[5] >> 6));
    key[6] = static_cast<uint8_t>(((in[5] & 0x3F) << 1) | (in[6] >> 7));
    key[7] = in[6] & 0x7F;
    for (uint8_t &byte : key)
        byte = static_cast<uint8_t>(byte << 1);
    des_fix_parity(DES_KEY_SIZE, key, key);
}

// The LAN Manager hash: the password upper-cased and cut or padded to 14 bytes, each half a
// DES key encrypting the fixed text "KGS!@#$%".
void lm_hash(const char *clear, uint8_t (&hash)[16]) {
    static constexpr uint8_t kMagic[8] = {'K', 'G', 'S', '!', '@', '#', '$', '%'};
    uint8_t padded[14] = {};
    for (size_t i = 0; i < sizeof padded && clear[i] != '\0'; ++i)
        padded[i] = static_cast<uint8_t>(toupper(static_cast<unsigned char>(clear[i])));
    for (int half = 0; half < 2; ++half) {
        uint8_t key[DES_KEY_SIZE];
        des_key_from(padded + 7 * half, key);
        des_ctx ctx;
        des_set_key(&ctx, key);  // a weak key (an empty half) is still a key here
        des_encrypt(&ctx, sizeof kMagic, hash + 8 * half, kMagic);
    }
}

// The NT hash: MD4 of the password in UTF-16, little-endian.
bool nt_hash(const char *clear, uint8_t (&hash)[16]) {
    const unicode::Utf16 text(clear);
    if (!text.ok()) return false;
    md4_ctx ctx;
    md4_init(&ctx);
    for (int32_t i = 0; i < text.length(); ++i) {
        const uint8_t unit[2] = {static_cast<uint8_t>(text.data()[i] & 0xFF),
                                 static_cast<uint8_t>(text.data()[i] >> 8)};
        md4_update(&ctx, sizeof unit, unit);
    }
    md4_digest(&ctx, sizeof hash, hash);
    return true;
}

}  // namespace

bool crypt_md5(const char *clear, const char *previous, char *out, size_t size) {
    char salt[kSaltSize];
    salt_from(previous, salt);
    auto *data = static_cast<crypt_data *>(xcalloc(1, sizeof(crypt_data)));
    if (data == nullptr) return fail(ERR_OUT_OF_MEMORY) == 0;
    const char *hash = crypt_r(clear, salt, data);
    if (hash == nullptr || hash[0] == '*') {  // a salt the library refuses: a new one
        fresh_salt(salt);
        hash = crypt_r(clear, salt, data);
    }
    const bool ok = hash != nullptr && hash[0] != '*' && strlen(hash) < size;
    if (ok) snprintf(out, size, "%s", hash);
    free(data);
    return ok || fail(ERR_UNKNOWN) == 0;
}

bool smb_hashes(const char *clear, char (&lm)[33], char (&nt)[33]) {
    uint8_t lm_bytes[16];
    uint8_t nt_bytes[16];
    lm_hash(clear, lm_bytes);
    if (!nt_hash(clear, nt_bytes)) return fail(ERR_BAD_PARAMETERS) == 0;
    to_hex(lm_bytes, sizeof lm_bytes, lm);
    to_hex(nt_bytes, sizeof nt_bytes, nt);
    return true;
}

}  // namespace kova::user
