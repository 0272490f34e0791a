// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/pixbuf_loading.h"

#include "platform/linux/image_file_checks.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace vexil {

namespace {

// Enough for every format to know its size, so that the rest of an image that is too large is not even looked at.
constexpr std::size_t kPiece = 65'536;

// Programs write about ten scans, and a picture of our largest size in that many still passes. A file may claim
// thousands in few bytes, and keep the decoder busy for an hour.
constexpr std::uint64_t kMaxJpegScans = 64;
constexpr std::uint64_t kMaxJpegPixelsOfAllScans = 2'000'000'000;

using LoaderPointer = std::unique_ptr<GdkPixbufLoader, UnrefObject>;

// The name under which gdk-pixbuf knows the format; null for one that we do not read. It would try more of them, such
// as SVG, which have no place here.
const char* formatOf(ByteView image) {
    const std::string_view head = textOf(image.first(std::min<std::size_t>(image.size(), 12)));
    if (head.starts_with(std::string_view("II*\0", 4)) || head.starts_with(std::string_view("MM\0*", 4)))
        return "tiff";
    if (head.starts_with("\xFF\xD8\xFF"))
        return "jpeg";
    if (head.starts_with("RIFF") && head.ends_with("WEBP"))
        return "webp";
    if (head.starts_with("BM"))
        return "bmp";
    return head.starts_with("GIF8") ? "gif" : nullptr;
}

bool isWorthDecoding(const image_file::JpegOutline& jpeg) {
    return jpeg.isWhole && jpeg.scans <= kMaxJpegScans && jpeg.scans * jpeg.pixels <= kMaxJpegPixelsOfAllScans;
}

bool isWorthDecoding(ByteView image, std::string_view format) {
    if (format == "jpeg")
        return isWorthDecoding(image_file::outlineOfJpeg(image));
    if (format == "bmp")
        return image_file::isWholeBmp(image);
    if (format == "gif")
        return image_file::isWholeGif(image);
    return format != "webp" || image_file::isWholeWebp(image);
}

struct SizeCheck {
    bool (*isTooLarge)(std::uint64_t, std::uint64_t) = nullptr;
    bool isRefused = false;
};

void onSizePrepared(GdkPixbufLoader* loader, int width, int height, gpointer data) {
    auto* check = static_cast<SizeCheck*>(data);
    if (width > 0 && height > 0 &&
        !check->isTooLarge(static_cast<std::uint64_t>(width), static_cast<std::uint64_t>(height)))
        return;
    check->isRefused = true;
    gdk_pixbuf_loader_set_size(loader, 0, 0); // which makes it give up
}

bool feed(GdkPixbufLoader* loader, ByteView image, const SizeCheck& check) {
    while (!image.empty()) {
        const ByteView piece = image.first(std::min(image.size(), kPiece));
        image = image.subspan(piece.size());
        if (gdk_pixbuf_loader_write(loader, piece.data(), piece.size(), nullptr) == FALSE || check.isRefused)
            return false;
    }
    return true;
}

} // namespace

const char* readableFormat(ByteView image) {
    const char* format = formatOf(image);
    return format != nullptr && isWorthDecoding(image, format) ? format : nullptr;
}

PixbufPointer loadPixbuf(ByteView image, bool (*isTooLarge)(std::uint64_t width, std::uint64_t height)) {
    const char* format = readableFormat(image);
    if (format == nullptr)
        return nullptr;
    if (const auto size = image_file::webpSize(image); size && isTooLarge(size->width, size->height))
        return nullptr;
    const LoaderPointer loader(gdk_pixbuf_loader_new_with_type(format, nullptr));
    if (!loader)
        return nullptr;
    SizeCheck check{isTooLarge};
    g_signal_connect(loader.get(), "size-prepared", G_CALLBACK(onSizePrepared), &check);
    const bool isFed = feed(loader.get(), image, check);
    // A loader has to be closed in any case.
    const bool isClosed = gdk_pixbuf_loader_close(loader.get(), nullptr) != FALSE;
    GdkPixbuf* const loaded = gdk_pixbuf_loader_get_pixbuf(loader.get());
    if (!isFed || !isClosed || check.isRefused || loaded == nullptr)
        return nullptr;
    return PixbufPointer(gdk_pixbuf_apply_embedded_orientation(loaded));
}

} // namespace vexil
