// A source for tests: answers group 15 with the input that it was sent, everything else from its
// tables.
#pragma once

#include "dpi/usr_ioctl.h"
#include "engine/source.h"

namespace idpfwd {

class Echo : public Source {
  public:
    [[nodiscard]] int descriptor() const override { return -1; }
    [[nodiscard]] int timeout() const override { return -1; }
    void work() override {}
    [[nodiscard]] bool finished() const override { return false; }
    std::optional<Reply> answer(const Request &request) override {
        ++asked;
        if (request.nr != IDPFW_NR_VP)
            return std::nullopt;
        return Reply{.error = 0, .output = request.input, .reportedLength = {}};
    }

    int asked = 0;
};

} // namespace idpfwd
