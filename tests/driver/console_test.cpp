#include "driver/console.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace {

using common::console;

// A connected pair of sequenced-packet sockets: every write(2) on one end is
// one message on the other, so the pieces a console writes can be counted.
class packet_pair {
public:
    packet_pair() {
        if (::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, fds) != 0) fds[0] = fds[1] = -1;
    }
    ~packet_pair() {
        if (fds[0] >= 0) ::close(fds[0]);
        if (fds[1] >= 0) ::close(fds[1]);
    }
    int writer() const { return fds[1]; }
    // Every message written so far, one string each.
    std::vector<std::string> pieces() {
        std::vector<std::string> out;
        char buf[4096];
        ssize_t n;
        while ((n = ::recv(fds[0], buf, sizeof buf, MSG_DONTWAIT)) > 0) out.emplace_back(buf, size_t(n));
        return out;
    }
    int fds[2];
};

// Runs `body` with `fd` standing in for descriptor `target`.
void with_descriptor(int target, int fd, const std::function<void()>& body) {
    std::fflush(stdout);
    int saved = ::dup(target);
    ::dup2(fd, target);
    body();
    ::dup2(saved, target);
    ::close(saved);
}

// Puts `text` into the pipe behind descriptor `fd`.
void feed(int fd, const std::string& text) {
    EXPECT_EQ(::write(fd, text.data(), text.size()), ssize_t(text.size()));
}

TEST(ConsoleTest, EveryPieceIsOneWrite) {
    packet_pair pair;
    ASSERT_GE(pair.writer(), 0);
    console c(pair.writer());
    common::file path("/tmp/x.dpx");
    common::stream text("stream text");
    common::unicode wide("\xC3\xA9t\xC3\xA9");
    c << "Finished " << 'x' << path << text << wide;
    EXPECT_EQ(pair.pieces(),
              (std::vector<std::string>{"Finished ", "x", "/tmp/x.dpx", "stream text", "\xC3\xA9t\xC3\xA9"}));
}

TEST(ConsoleTest, EmptyPiecesWriteNothing) {
    packet_pair pair;
    console c(pair.writer());
    c << static_cast<const char*>(nullptr) << "" << common::file() << common::stream() << common::unicode();
    EXPECT_TRUE(pair.pieces().empty());
}

TEST(ConsoleTest, IntegersPrintWholeInDecimal) {
    packet_pair pair;
    console c(pair.writer());
    c << int32_t(INT32_MIN) << int32_t(0) << uint32_t(UINT32_MAX) << int8_t(-128) << uint8_t(255)
      << int16_t(-32768) << uint16_t(65535) << int64_t(INT64_MIN) << uint64_t(UINT64_MAX) << int64_t(-1);
    EXPECT_EQ(pair.pieces(), (std::vector<std::string>{"-2147483648", "0", "4294967295", "-128", "255", "-32768",
                                                       "65535", "-9223372036854775808", "18446744073709551615",
                                                       "-1"}));
}

TEST(ConsoleTest, RealsPrintWithTheirFraction) {
    packet_pair pair;
    console c(pair.writer());
    c << 2.5 << -2.25;
    EXPECT_EQ(pair.pieces(), (std::vector<std::string>{"2.500000000", "-2.250000000"}));
}

TEST(ConsoleTest, ErrorLineIsBoldRedOnStandardOutput) {
    packet_pair pair;
    with_descriptor(1, pair.writer(), [] { printError(2, "cannot open ", "/x.dpx"); });
    EXPECT_EQ(pair.pieces(),
              (std::vector<std::string>{"\033[1;31mError: ", "cannot open ", "/x.dpx", "\033[0m\n"}));
    with_descriptor(1, pair.writer(), [] { printError(0); });
    EXPECT_EQ(pair.pieces(), (std::vector<std::string>{"\033[1;31mError: ", "\033[0m\n"}));
}

TEST(ConsoleTest, SizesComeFromTheTerminalWindow) {
    struct winsize ws = {};
    ws.ws_row = 41;
    ws.ws_col = 133;
    ws.ws_xpixel = 1064;
    ws.ws_ypixel = 656;
    int master = -1, slave = -1;
    ASSERT_EQ(::openpty(&master, &slave, nullptr, nullptr, &ws), 0);
    console c(slave);
    EXPECT_EQ(c.rows(), 41);
    EXPECT_EQ(c.width(), 133);
    EXPECT_EQ(c.width_pixels(), 1064);
    EXPECT_EQ(c.height_pixels(), 656);

    ws.ws_row = 24;
    ws.ws_col = 80;
    ASSERT_EQ(::ioctl(master, TIOCSWINSZ, &ws), 0);
    EXPECT_EQ(c.rows(), 24);
    EXPECT_EQ(c.width(), 80);
    ::close(slave);
    ::close(master);
}

TEST(ConsoleTest, SizesAreZeroOffATerminal) {
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    FILE* redirected = std::tmpfile();
    ASSERT_NE(redirected, nullptr);
    for (int fd : {fds[1], fileno(redirected)}) {
        console c(fd);
        EXPECT_EQ(c.width(), 0) << fd;
        EXPECT_EQ(c.rows(), 0) << fd;
        EXPECT_EQ(c.width_pixels(), 0) << fd;
        EXPECT_EQ(c.height_pixels(), 0) << fd;
    }
    ::close(fds[0]);
    ::close(fds[1]);
    std::fclose(redirected);
}

TEST(ConsoleTest, ReadTakesWhatIsWaitingOnStandardInputOnly) {
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    with_descriptor(0, fds[0], [&] {
        char buf[64];
        feed(fds[1], "hello\n");
        EXPECT_EQ(common::console_in.read(buf, 4), 3);
        EXPECT_STREQ(buf, "hel");
        EXPECT_EQ(common::console_in.read(buf, sizeof buf), 3);
        EXPECT_STREQ(buf, "lo\n");
        EXPECT_EQ(common::console_in.read(buf, sizeof buf), 0);
        EXPECT_STREQ(buf, "");

        feed(fds[1], "/tmp/a.dpx");
        common::file path("/old");
        EXPECT_EQ(common::console_in.read(path), 10);
        EXPECT_STREQ(path.c_str(), "/tmp/a.dpx");

        feed(fds[1], "typed");
        common::stream text;
        common::console_in.read(text);
        EXPECT_STREQ(text.c_str(), "typed");

        feed(fds[1], "\xC3\xA9");
        common::unicode wide;
        common::console_in.read(wide);
        ASSERT_EQ(wide.length(), 1);
        EXPECT_EQ(wide.data()[0], 0xE9);

        feed(fds[1], "left");
        console other(fds[0]);
        other.read(buf, sizeof buf);
        EXPECT_STREQ(buf, "") << "only descriptor 0 is read";
        char drain[8];
        EXPECT_EQ(::read(fds[0], drain, sizeof drain), 4) << "the other console left the bytes waiting";
    });
    ::close(fds[0]);
    ::close(fds[1]);
}

TEST(ConsoleTest, MicrosecondClockFollowsTheTimeOfDay) {
    struct timeval before, after;
    ::gettimeofday(&before, nullptr);
    uint64_t micros = common::microseconds_now();
    ::gettimeofday(&after, nullptr);
    EXPECT_LE(uint64_t(before.tv_sec) * 1000000 + uint64_t(before.tv_usec), micros);
    EXPECT_LE(micros, uint64_t(after.tv_sec) * 1000000 + uint64_t(after.tv_usec));
}

}  // namespace
