// The settings report of the first DPX file, line by line, as printed by the
// built binary for hand-built headers.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/dpx_bytes.h"
#include "support/tarvex_process.h"

namespace {

using testdata::dpx_layout;

class SettingsReport : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_FALSE(dir.path().empty()); }
    // Runs tarvex on one little-endian file made from `layout`; returns the output.
    std::string report_of(dpx_layout layout) {
        layout.big_endian = false;
        EXPECT_TRUE(testdata::write_file(dir / "frame.dpx", testdata::make_dpx(layout)));
        testrun::outcome r = testrun::run_piped(dir.path(), {"frame.dpx"});
        EXPECT_EQ(0, r.status);
        return r.out;
    }
    // The whole line of `out` that starts with `label`; empty when none does.
    static std::string line(const std::string& out, const std::string& label) {
        size_t at = out.find("\n" + label);
        if (at == std::string::npos) return std::string();
        size_t end = out.find('\n', at + 1);
        return out.substr(at + 1, end == std::string::npos ? std::string::npos : end - at - 1);
    }

    testrun::scratch_dir dir;
};

TEST_F(SettingsReport, TransferCodesUseTheProgramsOwnNames) {
    const std::pair<int, const char*> names[] = {
        {0, "Transfer        : User Defined"},
        {1, "Transfer        : Printing Density"},
        {2, "Transfer        : Linear"},
        {3, "Transfer        : Logarithmic"},
        {4, "Transfer        : SMPTE 274M"},
        {5, "Transfer        : ITU-R 709-4"},
        {6, "Transfer        : Unspecified"},
        {7, "Transfer        : ITU-R 601-5 system B or G"},
        {8, "Transfer        : ITU-R 601-5 system M"},
        {9, "Transfer        : Composite Video(NTSC)"},
        {10, "Transfer        : Composite Video(PAL)"},
        {11, "Transfer        : Z Depth(linear)"},
        {12, "Transfer        : Z Depth(homogeneous)"},
        {13, "Transfer        : Unspecified"},
        {255, "Transfer        : Unspecified"},
    };
    for (const auto& [code, text] : names) {
        dpx_layout layout;
        layout.transfer = uint8_t(code);
        EXPECT_EQ(text, line(report_of(layout), "Transfer        : ")) << "code " << code;
    }
}

TEST_F(SettingsReport, NegativeLowDataPrintsSignedAndMatchesItself) {
    dpx_layout layout;
    layout.ref_low = 0xFFFFFFF6;
    std::string out = report_of(layout);
    ASSERT_TRUE(testrun::age(dir / "frame.dpx"));
    EXPECT_EQ("Lowdata         : -10", line(out, "Lowdata         : "));
    EXPECT_EQ("Highdata        : 685", line(out, "Highdata        : "));
    // The report's own run set the low value from this file: nothing to rewrite.
    testrun::file_facts before = testrun::facts_of(dir / "frame.dpx");
    EXPECT_EQ(0, testrun::run_piped(dir.path(), {"frame.dpx"}).status);
    EXPECT_EQ(before.mtime_ns, testrun::facts_of(dir / "frame.dpx").mtime_ns);
}

TEST_F(SettingsReport, TextsThatFillTheirFieldsStopAtTheFieldEnd) {
    dpx_layout layout;
    layout.creator = std::string(100, 'C');
    layout.date = "2026:11:21:10:00:00+0100";
    ASSERT_EQ(24u, layout.date.size());
    std::string out = report_of(layout);
    EXPECT_EQ("Creator         : " + std::string(100, 'C'), line(out, "Creator         : "));
    EXPECT_EQ("Date            : 2026:11:21:10:00:00+0100", line(out, "Date            : "));
}

TEST_F(SettingsReport, OffsetsPackingDescriptorAndBitsLines) {
    dpx_layout rgba;
    rgba.descriptor = 51;
    rgba.image_offset = rgba.element_offset = 4096;
    std::string out = report_of(rgba);
    EXPECT_EQ("Descriptor      : RGBA", line(out, "Descriptor      : "));
    EXPECT_EQ("Offset          : 4096", line(out, "Offset          : "));
    EXPECT_EQ("Element Offset  : 4096", line(out, "Element Offset  : "));

    dpx_layout packed = rgba;
    packed.bit_size = 8;
    packed.packing = 0;
    out = report_of(packed);
    EXPECT_EQ("Packing         : 32-bit words", line(out, "Packing         : "));
    EXPECT_EQ("Bits            : 8", line(out, "Bits            : "));

    dpx_layout odd;
    odd.packing = 3;
    EXPECT_EQ("Packing         : Unknown", line(report_of(odd), "Packing         : "));
}

}  // namespace
