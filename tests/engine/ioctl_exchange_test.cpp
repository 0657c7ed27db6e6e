#include "engine/ioctl_exchange.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

namespace idpfwd {
namespace {

constexpr std::uint64_t kHeader = 0x1000, kOut = 0x2000, kUsed = 0x3000, kInput = 0x4000;

class Fixed final : public Source {
  public:
    [[nodiscard]] int descriptor() const override { return -1; }
    [[nodiscard]] int timeout() const override { return -1; }
    void work() override {}
    [[nodiscard]] bool finished() const override { return false; }
    std::optional<Reply> answer(const Request &request) override {
        ++asked;
        input = request.input;
        return reply;
    }
    int asked = 0;
    std::vector<std::uint8_t> input;
    Reply reply;
};

class Memory final : public CallerMemory {
  public:
    bool read(std::uint64_t address, std::span<std::uint8_t> bytes) override {
        std::fill(bytes.begin(), bytes.end(), 0x5A);
        return works && address == kInput;
    }
    bool write(std::uint64_t address, std::span<const std::uint8_t> bytes) override {
        written.assign(bytes.begin(), bytes.end());
        return works && address == kOut;
    }
    bool works = true;
    std::vector<std::uint8_t> written;
};

class IoctlExchangeTest : public testing::Test {
  protected:
    IoctlExchangeTest() : header_(kHeaderSize32) {
        put(0, 191);
        header_[4] = 12;
        header_[5] = 4;
        put(16, kOut);
        put(20, kUsed);
        put(24, 2'000'000);
    }

    void put(std::size_t offset, std::uint64_t value) {
        const auto number = static_cast<std::uint32_t>(value);
        memcpy(header_.data() + offset, &number, sizeof number);
    }

    void setInput(std::uint32_t length) {
        header_[7] = 2;
        put(8, kInput);
        put(12, length);
    }

    Round next(std::span<const std::uint8_t> in, std::size_t outSize = 0) {
        return exchange_.next({.caller = 7,
                               .number = 0xC02CBF0C,
                               .argument = kHeader,
                               .headerSize = kHeaderSize32,
                               .in = in,
                               .outSize = outSize},
                              memory_, source_);
    }

    std::vector<std::uint8_t> header_;
    Fixed source_;
    Memory memory_;
    IoctlExchange exchange_;
};

TEST_F(IoctlExchangeTest, HeaderThenExactlyTheUsedBytesThenTheAnswer) {
    source_.reply.output = {1, 2, 3};
    const Round first = next({});
    EXPECT_EQ(first.kind, Round::Kind::kRetry);
    EXPECT_EQ(first.in, (std::vector<Mapping>{{kHeader, 44}}));
    EXPECT_TRUE(first.out.empty());

    const Round second = next(header_);
    EXPECT_EQ(second.kind, Round::Kind::kRetry);
    EXPECT_EQ(second.in, (std::vector<Mapping>{{kHeader, 44}}));
    EXPECT_EQ(second.out, (std::vector<Mapping>{{kUsed, 4}, {kOut, 3}}));

    const Round third = next(header_, 7);
    EXPECT_EQ(third.kind, Round::Kind::kDone);
    EXPECT_EQ(third.output, (std::vector<std::uint8_t>{3, 0, 0, 0, 1, 2, 3}));
    EXPECT_EQ(source_.asked, 1) << "the answer is kept between the rounds";
    EXPECT_EQ(next({}).in.size(), 1U) << "the next call begins afresh";
}

TEST_F(IoctlExchangeTest, InputIsMappedOrReadWhenItIsTooLarge) {
    setInput(2);
    next({});
    const Round second = next(header_);
    EXPECT_EQ(second.in, (std::vector<Mapping>{{kHeader, 44}, {kInput, 2}}));
    auto mapped = header_;
    mapped.insert(mapped.end(), {8, 9});
    EXPECT_EQ(next(mapped).out, (std::vector<Mapping>{{kUsed, 4}}));
    EXPECT_EQ(source_.input, (std::vector<std::uint8_t>{8, 9}));

    setInput(200'000);
    next({});
    EXPECT_EQ(next(header_).out, (std::vector<Mapping>{{kUsed, 4}}));
    EXPECT_EQ(source_.input.size(), 200'000U);
    memory_.works = false;
    next({});
    EXPECT_EQ(next(header_).error, EFAULT);
}

TEST_F(IoctlExchangeTest, AnAnswerAboveTheMappingLimitGoesStraightIntoTheCaller) {
    for (const std::size_t size : {kMaxMapped - 4, kMaxMapped - 3}) {
        memory_.written.clear();
        source_.reply.output.assign(size, 6);
        next({});
        const bool mapped = size + 4 <= kMaxMapped;
        const std::size_t outSize = mapped ? size + 4 : 4;
        EXPECT_EQ(next(header_).out.size(), mapped ? 2U : 1U);
        EXPECT_EQ(next(header_, outSize).output.size(), outSize);
        EXPECT_EQ(memory_.written.size(), mapped ? 0U : size);
    }
    memory_.works = false;
    next({});
    next(header_);
    const Round failed = next(header_, 4);
    EXPECT_EQ(failed.kind, Round::Kind::kFail);
    EXPECT_EQ(failed.error, EFAULT);
}

TEST_F(IoctlExchangeTest, WithoutAnythingToWriteTheAnswerComesAtOnce) {
    put(20, 0);
    next({});
    EXPECT_EQ(next(header_).kind, Round::Kind::kDone);
    source_.reply.error = EBUSY;
    EXPECT_EQ(next(header_).error, EBUSY);
    header_[0] = 0;
    EXPECT_EQ(next(header_).error, EINVAL);
}

TEST_F(IoctlExchangeTest, AnInterruptedCallLeavesNothingForTheNextOne) {
    source_.reply.output = {1};
    next({});
    next(header_);
    next({}); // the same thread calls again
    source_.reply.output = {2, 3};
    EXPECT_EQ(next(header_).out, (std::vector<Mapping>{{kUsed, 4}, {kOut, 2}}));
    EXPECT_EQ(next(header_, 5).error, EIO) << "mapped for another answer";
}

} // namespace
} // namespace idpfwd
