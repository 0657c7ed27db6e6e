#include "engine/scenario/scenario_replies.h"

#include "engine/options.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <limits>

namespace idpfwd {
namespace {

// What a scenario's error numbers can be called.
struct ErrorName {
    const char *name;
    int number;
};
constexpr std::array kErrorNames = {
    ErrorName{"EPERM", EPERM},   ErrorName{"EIO", EIO},       ErrorName{"ENOMEM", ENOMEM},
    ErrorName{"EACCES", EACCES}, ErrorName{"EFAULT", EFAULT}, ErrorName{"EBUSY", EBUSY},
    ErrorName{"ENODEV", ENODEV}, ErrorName{"EINVAL", EINVAL}, ErrorName{"ENOTTY", ENOTTY},
};

// Little-endian, as the records are.
template <typename Number>
void put(std::vector<std::uint8_t> &bytes, Number value) {
    for (std::size_t i = 0; i < sizeof value; ++i)
        bytes.push_back(static_cast<std::uint8_t>(std::uint64_t{value} >> (8 * i)));
}

template <typename Number>
void putField(std::vector<std::uint8_t> &bytes, Fields &fields, const char *name,
              Number fallback = 0) {
    put(bytes, fields.numberOr<Number>(name, fallback));
}

void putBandwidth(std::vector<std::uint8_t> &bytes, Fields &fields) {
    putField<std::uint8_t>(bytes, fields, "uid");
    putField<std::uint8_t>(bytes, fields, "category");
    putField<std::uint16_t>(bytes, fields, "id");
    putField<std::uint64_t>(bytes, fields, "down");
    putField<std::uint64_t>(bytes, fields, "up");
    putField<std::uint32_t>(bytes, fields, "available", 1);
}

void putPatrol(std::vector<std::uint8_t> &bytes, Fields &fields) {
    putField<std::uint8_t>(bytes, fields, "uid");
    const auto mac = parseMac(fields.text("mac").value_or("00:00:00:00:00:00"));
    if (!mac)
        fields.fail("'mac' must be aa:bb:cc:dd:ee:ff");
    bytes.insert(bytes.end(), mac->begin(), mac->end());
    putField<std::uint8_t>(bytes, fields, "category");
    putField<std::uint16_t>(bytes, fields, "id");
    putField<std::uint32_t>(bytes, fields, "time");
    putField<std::uint8_t>(bytes, fields, "flag");
    putField<std::uint32_t>(bytes, fields, "available", 1);
}

// Pairs of hexadecimal digits, blanks between them as one likes.
std::vector<std::uint8_t> fromHex(const Fields &fields, std::string text) {
    std::erase(text, ' ');
    if (text.size() % 2 != 0)
        fields.fail("'hex' needs pairs of digits");
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        std::uint8_t byte = 0;
        const char *pair = text.data() + i;
        if (std::from_chars(pair, pair + 2, byte, 16).ptr != pair + 2)
            fields.fail("'hex' needs pairs of digits");
        bytes.push_back(byte);
    }
    return bytes;
}

int readError(Fields &fields) {
    const auto called = fields.text("errno");
    if (!called)
        return 0;
    const auto known = std::find_if(kErrorNames.begin(), kErrorNames.end(),
                                    [&](const auto &error) { return *called == error.name; });
    if (known == kErrorNames.end())
        fields.fail("'errno' must be a name such as \"EIO\", not '" + *called + "'");
    return known->number;
}

std::optional<std::uint32_t> optionalNumber(Fields &fields, const char *name) {
    const auto value = fields.number(name, std::numeric_limits<std::uint32_t>::max());
    return value ? std::optional(static_cast<std::uint32_t>(*value)) : std::nullopt;
}

} // namespace

ReplyRule readReplyRule(Fields &fields) {
    ReplyRule rule{.nr = fields.required<std::uint8_t>("nr"),
                   .op = fields.required<std::uint8_t>("op"),
                   .removed = fields.flag("remove").value_or(false),
                   .error = readError(fields),
                   .body = {},
                   .cut = optionalNumber(fields, "cut"),
                   .reports = optionalNumber(fields, "reports")};
    if (fields.has("hex") + fields.has("bandwidth") + fields.has("patrol") > 1)
        fields.fail("only one of 'hex', 'bandwidth' and 'patrol' can be given");
    if (const auto hex = fields.text("hex"))
        rule.body = fromHex(fields, *hex);
    if (fields.has("bandwidth") || fields.has("patrol"))
        rule.body.emplace();
    fields.eachOf("bandwidth", [&](Fields &record) { putBandwidth(*rule.body, record); });
    fields.eachOf("patrol", [&](Fields &record) { putPatrol(*rule.body, record); });
    return rule;
}

Reply applyRule(const ReplyRule &rule, std::optional<Reply> tables) {
    Reply reply;
    reply.error = rule.error;
    if (rule.body)
        reply.output = *rule.body;
    else if (tables)
        reply.output = std::move(tables->output);
    if (rule.cut && *rule.cut < reply.output.size())
        reply.output.resize(*rule.cut);
    reply.reportedLength = rule.reports;
    return reply;
}

} // namespace idpfwd
