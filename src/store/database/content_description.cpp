// SPDX-License-Identifier: Apache-2.0
#include "store/database/content_description.h"

#include "base/text.h"
#include "store/database/byte_count.h"
#include "store/database/jpeg_image.h"

#include <sodium.h>

#include <string_view>

namespace vexil {

namespace {

std::string imagePreview(ByteView image) {
    const std::string bytes = byteCountText(image.size());
    const auto size = jpegSize(image);
    if (!size)
        return "image, " + bytes;
    return std::to_string(size->width) + " × " + std::to_string(size->height) + " pixels, " + bytes;
}

} // namespace

ContentHash contentHash(ClipboardKind kind, ByteView content) {
    using namespace std::string_view_literals;
    const ByteView prefix = bytesOf(kind == ClipboardKind::text ? "text\0"sv : "image\0"sv);
    crypto_hash_sha256_state state;
    crypto_hash_sha256_init(&state);
    crypto_hash_sha256_update(&state, prefix.data(), prefix.size());
    crypto_hash_sha256_update(&state, content.data(), content.size());
    ContentHash hash;
    static_assert(sizeof hash == crypto_hash_sha256_BYTES);
    crypto_hash_sha256_final(&state, hash.data());
    return hash;
}

ContentDescription describe(ClipboardKind kind, ByteView content) {
    if (kind == ClipboardKind::image)
        return {imagePreview(content), jpegThumbnail(content)};
    return {text::foldedToOneLine(textOf(content), kMaxPreviewCharacters, kMaxPreviewBytes), std::nullopt};
}

} // namespace vexil
