#include "engine/device/ioctl_exchange.h"

#include "echo_source.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <numeric>

namespace idpfwd {
namespace {

constexpr std::uint32_t kUsed = 0x80, kInput = 0x100, kOut = 0x80000;

// A caller, with its request at the beginning of its memory, and the kernel between the two. The
// parameter is the size of its header.
class IoctlExchangeTest : public testing::TestWithParam<std::size_t>, public CallerMemory {
  protected:
    bool read(std::uint64_t address, std::span<std::uint8_t> target) override {
        std::copy_n(at(address), target.size(), target.begin());
        return readable_;
    }

    bool write(std::uint64_t address, std::span<const std::uint8_t> source) override {
        std::copy(source.begin(), source.end(), at(address));
        return writable_;
    }

    std::uint8_t *at(std::uint64_t address) {
        return reinterpret_cast<std::uint8_t *>(words_.data()) + address;
    }

    void request(std::uint32_t inputSize, std::uint32_t used = kUsed) {
        words_ = {IDPFW_MAGIC, IDPFW_NR_VP | 2U << 24, kInput, inputSize, kOut, used, 2'000'000};
        if (GetParam() == kHeaderSize64)
            words_ = {
                IDPFW_MAGIC, IDPFW_NR_VP | 2U << 24, kInput, 0, inputSize, 0, kOut, 0, used, 0,
                2'000'000};
        words_.resize(0x40000, 0xEEEEEEEE);
    }

    // The next round, with what the last one has asked for mapped.
    Round next(const Round &last) {
        std::vector<std::uint8_t> in;
        for (const auto &[address, size] : last.in)
            in.insert(in.end(), at(address), at(address) + size);
        std::size_t outSize = 0;
        for (const Mapping &piece : last.out)
            outSize += piece.size;
        EXPECT_LE(std::max(in.size(), outSize), kMaxMapped);
        const std::uint32_t number = IDPFW_REQUEST(*at(4));
        return exchange_.next({caller_, number, 0, GetParam(), in, outSize}, *this, server_);
    }

    // A call from its first round to its last: 0, or its errno.
    int call() {
        Round last, round = next({});
        for (int further = 0; further < 3 && round.kind == Round::Kind::kRetry; ++further) {
            last = round;
            round = next(last);
        }
        EXPECT_NE(round.kind, Round::Kind::kRetry) << "header, input, output, and no more";
        std::span<const std::uint8_t> output(round.output);
        for (const auto &[address, size] : last.out) {
            if (output.size() < size)
                break;
            std::copy_n(output.begin(), size, at(address));
            output = output.subspan(size);
        }
        EXPECT_TRUE(output.empty());
        return round.error;
    }

    pid_t caller_ = 7;
    std::vector<std::uint32_t> words_;
    bool readable_ = true, writable_ = true;
    Echo source_;
    RequestServer server_{source_};
    IoctlExchange exchange_;
};

TEST_P(IoctlExchangeTest, InputAndOutputOfEverySizeArriveWhole) {
    int calls = 0;
    for (const std::uint32_t size : {0, 1, 131028, 131029, 131068, 131069})
        for (const std::uint32_t used : {kUsed, 0U}) {
            request(size, used);
            std::iota(at(kInput), at(kInput) + size, static_cast<std::uint8_t>(size));
            EXPECT_EQ(call(), 0) << size;
            EXPECT_EQ(memcmp(at(kOut), at(kInput), size), 0) << size;
            EXPECT_EQ(*at(kOut + size), 0xEE) << size;
            EXPECT_EQ(words_[kUsed / 4], used != 0 ? size : 0xEEEEEEEE);
            EXPECT_EQ(source_.asked, ++calls) << "once, in however many rounds";
        }
}

TEST_P(IoctlExchangeTest, FailuresHaveTheirErrno) {
    request(131069);
    readable_ = false;
    EXPECT_EQ(call(), EFAULT);
    readable_ = true;
    writable_ = false;
    EXPECT_EQ(call(), EFAULT);
    request(1);
    *at(4) = 99;
    EXPECT_EQ(call(), ENOTTY);
    *at(0) = 0;
    EXPECT_EQ(call(), EINVAL);
}

TEST_P(IoctlExchangeTest, AnswersThatNobodyFetchesMakeRoomForThoseOfTheLiving) {
    request(1);
    const auto ask = [this](pid_t caller) {
        caller_ = caller;
        return next(next(next({})));
    };
    for (pid_t killed = 40; killed > 2; --killed)
        ask(killed);
    const Round first = ask(2);
    ask(1);
    const int asked = source_.asked;
    caller_ = 2;
    EXPECT_EQ(next(first).kind, Round::Kind::kDone);
    EXPECT_EQ(source_.asked, asked) << "fetched, not asked for again";
}

TEST_P(IoctlExchangeTest, AnInterruptedCallLeavesNothingForTheNextOne) {
    request(1);
    next(next(next({})));
    request(2); // the same thread calls again
    EXPECT_EQ(call(), 0);
    Round waiting = next(next(next({})));
    ASSERT_EQ(waiting.out.size(), 2U);
    waiting.out.pop_back();
    EXPECT_EQ(next(waiting).error, EIO) << "mapped for another answer";
}

INSTANTIATE_TEST_SUITE_P(Headers, IoctlExchangeTest, testing::Values(kHeaderSize32, kHeaderSize64));

} // namespace
} // namespace idpfwd
