#include "cineon/codec.h"

#include <fcntl.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cineon/cineon_reader.h"
#include "support/dpx_bytes.h"
#include "support/tarvex_process.h"
#include "cineon/dpx_reader.h"

namespace {

using testdata::byte_image;
using testdata::with_fields_reversed;
using testdata::dpx_file;
using testrun::scratch_dir;

int holder_pointers(const image_holder& h) {
    return (h.cineon_reader != nullptr) + (h.cineon_writer != nullptr) + (h.dpx_reader != nullptr) +
           (h.dpx_writer != nullptr);
}

TEST(ImageHolderTest, LoadPicksTheReaderByMagic) {
    scratch_dir dir;
    for (bool big : {true, false}) {
        image_holder dpx;
        ASSERT_EQ(dpx.load(dir.write("a.dpx", dpx_file(big, 4, 4).data).c_str()), codec_ok);
        ASSERT_NE(dpx.dpx_reader, nullptr);
        EXPECT_EQ(holder_pointers(dpx), 1);
        EXPECT_EQ(dpx.dpx_reader->header_loaded, 1u);
        EXPECT_GE(dpx.dpx_reader->fd, 0);
    }
    image_holder kodak;
    ASSERT_EQ(kodak.load(dir.write("a.cin", testdata::make_cineon(true, 4, 4)).c_str()), codec_ok);
    ASSERT_NE(kodak.cineon_reader, nullptr);
    EXPECT_EQ(holder_pointers(kodak), 1);
}

TEST(ImageHolderTest, FailedLoadsReturnThreeAndHoldNothing) {
    scratch_dir dir;
    byte_image refused = dpx_file(true, 4, 4);
    refused.u32(660, 0);
    byte_image unknown(2048, true);
    unknown.text(0, "GIF8");
    const std::vector<std::pair<std::string, std::vector<uint8_t>>> files = {
        {"three.dpx", {'S', 'D', 'P'}}, {"refused.dpx", refused.data}, {"unknown.dpx", unknown.data}};
    for (const auto& file : files) {
        image_holder h;
        EXPECT_EQ(h.load(dir.write(file.first, file.second).c_str()), codec_io) << file.first;
        EXPECT_EQ(holder_pointers(h), 0) << file.first;
    }
    image_holder missing;
    EXPECT_EQ(missing.load((dir.path() + "/none.dpx").c_str()), codec_io);
    EXPECT_EQ(holder_pointers(missing), 0);
}

TEST(CodecTest, OpenTwiceKeepsTheFirstDescriptorAndDestructionClosesIt) {
    scratch_dir dir;
    std::string path = dir.write("a.dpx", dpx_file(true, 4, 4).data);
    auto* reader = new smptedpx_reader();
    ASSERT_EQ(reader->open(path.c_str(), false), codec_ok);
    int fd = reader->fd;
    EXPECT_EQ(reader->open(path.c_str(), true), codec_already_open);
    EXPECT_EQ(reader->fd, fd);
    delete reader;
    EXPECT_EQ(fcntl(fd, F_GETFD), -1) << "the descriptor is closed with its reader";

    smptedpx_reader r;
    EXPECT_EQ(r.open((dir.path() + "/none.dpx").c_str(), false), codec_io);
    EXPECT_EQ(r.close(), -1);
    ASSERT_EQ(r.open(path.c_str(), false), codec_ok);
    EXPECT_EQ(r.close(), 0);
    EXPECT_EQ(r.fd, -1);
}

TEST(CodecTest, ReadersStartWithTheirDefaults) {
    kodakcineon_reader r;
    EXPECT_EQ(r.fd, -1);
    EXPECT_EQ(r.expand_to_10bit, 1u);
    EXPECT_EQ(r.ref_high, 1023);
    EXPECT_EQ(r.gamma, 1.0f);
    EXPECT_EQ(r.frame_rate, 24.0f);
    uint8_t buf[16];
    EXPECT_EQ(r.read_user_data(buf, 16), codec_unsupported);
    EXPECT_EQ(r.read_lines(buf, 0, 1, 16), codec_unsupported);
    EXPECT_EQ(r.read_element(1, buf, 16), codec_unsupported);
    EXPECT_EQ(r.read_thumbnail(buf, 2, 2, 16), codec_unsupported);
}

TEST(CodecTest, ReverseWordsReversesWholeWordsOnly) {
    // 37 words cover whole blocks and a tail; three trailing bytes stay.
    std::vector<uint8_t> bytes(4 * 37 + 3);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = uint8_t(i * 7 + 1);
    std::vector<std::pair<size_t, int>> words;
    for (size_t k = 0; k < 37; ++k) words.push_back({4 * k, 4});
    std::vector<uint8_t> expected = with_fields_reversed(bytes, words);
    reverse_words(bytes.data(), bytes.size());
    EXPECT_EQ(bytes, expected);
}

}  // namespace
