// SPDX-License-Identifier: Apache-2.0
// What it costs to store a copy so that a power cut does not take it. Besides the measures of ./bench, --synchronous
// prints what SQLite's synchronous=FULL costs beside NORMAL, with which the last copies could be lost.
#include "bench/bare_sqlite.h"
#include "bench/harness.h"
#include "store/database/jpeg_fixture.h"
#include "store/database/store_database.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>

namespace vexil {
namespace {

constexpr std::size_t kTextSize = 1000;
constexpr std::size_t kImageSize = 12'582'912;

void require(bool condition, const char* what) {
    if (!condition)
        throw std::runtime_error(what);
}

class TextSource {
public:
    // Another one each time.
    std::string next() {
        std::string text = std::to_string(++count_) + " ";
        while (text.size() < kTextSize)
            text.push_back(static_cast<char>('a' + random_() % 26));
        return text;
    }

private:
    int count_ = 0;
    std::mt19937 random_{1};
};

struct Stores {
    bench::ScratchFolder folder;
    StoreDatabase store = StoreDatabase::open(folder.path() / "store.db", StoreDatabase::Mode::createIfMissing).value();
    bench::BareSqlite bare{folder.path() / "bare.db"};
    TextSource texts;

    Stores() {
        bare.execute("CREATE TABLE copies (number INTEGER PRIMARY KEY, data BLOB NOT NULL)");
        bare.prepare("INSERT INTO copies (data) VALUES (?)");
    }
    void record(ClipboardKind kind, ByteView content) {
        require(store.entries().record(kind, content, Date{800'000'000}).hasValue(), "the copy is not stored");
    }
};

bench::Trial insertInto(std::size_t historyLimit) {
    const auto stores = std::make_shared<Stores>();
    require(stores->store.entries().setHistoryLimit(historyLimit).hasValue(), "the limit cannot be set");
    for (int i = 0; i < 200; ++i)
        stores->record(ClipboardKind::text, bytesOf(stores->texts.next()));
    return {[=] {
                const std::string text = stores->texts.next();
                return bench::microsecondsOf([&] { stores->record(ClipboardKind::text, bytesOf(text)); });
            },
            [=] {
                const std::string text = stores->texts.next();
                return bench::microsecondsOf([&] { stores->bare.runWith(bytesOf(text)); });
            }};
}

bench::Trial insert() {
    return insertInto(ClipboardEntries::kMaxHistoryLimit);
}

// Each copy lets an older one fall out.
bench::Trial insertIntoFullHistory() {
    return insertInto(200);
}

// A photograph's worth of noise, of exactly the size: what follows the end of a JPEG does not count.
Bytes largeJpeg() {
    Bytes jpeg = makeJpeg({5000, 3200}, false, true);
    for (std::uint32_t height = 3000; jpeg.size() > kImageSize; height -= 200)
        jpeg = makeJpeg({5000, height}, false, true);
    jpeg.resize(kImageSize, 0);
    return jpeg;
}

// libjpeg-turbo as its manual says: decode at an eighth, encode what comes out.
std::size_t bareThumbnail(ByteView jpeg) {
    jpeg_error_mgr errors{};
    jpeg_decompress_struct decoder{};
    decoder.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&decoder);
    jpeg_mem_src(&decoder, jpeg.data(), jpeg.size());
    jpeg_read_header(&decoder, TRUE);
    decoder.scale_num = 1;
    decoder.scale_denom = 8;
    decoder.dct_method = JDCT_IFAST;
    jpeg_start_decompress(&decoder);
    const std::size_t stride = std::size_t{decoder.output_width} * 3;
    std::vector<std::uint8_t> pixels(stride * decoder.output_height);
    while (decoder.output_scanline < decoder.output_height) {
        JSAMPROW row = pixels.data() + stride * decoder.output_scanline;
        jpeg_read_scanlines(&decoder, &row, 1);
    }
    jpeg_compress_struct encoder{};
    encoder.err = jpeg_std_error(&errors);
    jpeg_create_compress(&encoder);
    unsigned char* out = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&encoder, &out, &size);
    encoder.image_width = decoder.output_width;
    encoder.image_height = decoder.output_height;
    encoder.input_components = 3;
    encoder.in_color_space = JCS_RGB;
    jpeg_set_defaults(&encoder);
    jpeg_start_compress(&encoder, TRUE);
    while (encoder.next_scanline < encoder.image_height) {
        JSAMPROW row = pixels.data() + stride * encoder.next_scanline;
        jpeg_write_scanlines(&encoder, &row, 1);
    }
    jpeg_finish_compress(&encoder);
    jpeg_destroy_compress(&encoder);
    jpeg_finish_decompress(&decoder);
    jpeg_destroy_decompress(&decoder);
    std::free(out); // NOLINT(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory): libjpeg allocated it
    return size;
}

bench::Trial image() {
    const auto stores = std::make_shared<Stores>();
    const auto jpeg = std::make_shared<Bytes>(largeJpeg());
    return {[=] {
                ++jpeg->back(); // another one each time
                const double time = bench::millisecondsOf([&] { stores->record(ClipboardKind::image, *jpeg); });
                const auto newest = stores->store.lists().entries({.limit = 1, .withThumbnails = true});
                require(newest->front().row.thumbnail.has_value(), "there is no thumbnail");
                return time;
            },
            [=] {
                return bench::millisecondsOf([&] {
                    require(bareThumbnail(*jpeg) > 0, "the reference makes no thumbnail");
                    stores->bare.runWith(*jpeg);
                });
            }};
}

template <class F> double medianOf(F&& microseconds) {
    std::array<double, 301> times{};
    std::generate(times.begin(), times.end(), microseconds);
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

int printSynchronous() {
    Stores stores;
    const auto insertion = [&] {
        const std::string text = stores.texts.next();
        return bench::microsecondsOf([&] { stores.bare.runWith(bytesOf(text)); });
    };
    for (const char* level : {"FULL", "NORMAL"}) {
        stores.bare.execute(std::string("PRAGMA synchronous = ") + level);
        std::printf("synchronous=%-7s %8.1f us per bare insert of %zu bytes\n", level, medianOf(insertion), kTextSize);
    }
    return 0;
}

} // namespace
} // namespace vexil

int main(int argc, char** argv) {
    using namespace vexil;
    if (argc == 2 && std::string_view(argv[1]) == "--synchronous")
        return printSynchronous();
    return bench::run(argc, argv,
                      {{"store.insert", "us", insert, 501},
                       {"store.insert-full", "us", insertIntoFullHistory, 501},
                       {"store.image", "ms", image, 15, 1}});
}
