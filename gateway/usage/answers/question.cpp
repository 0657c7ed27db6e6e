#include "usage/answers/question.h"

#include "usage/text.h"

#include <algorithm>

namespace usage {
namespace {

constexpr const char *kTimes = "needs a time (2026-11-21T21:18:00+01:00), a date (2026-11-21) or a"
                               " span (30m, 24h, 7d, 12mo), not '";

Seconds parseWhen(const char *name, const std::string &text, Seconds now) {
    if (const auto ago = parseAgo(text, now))
        return *ago;
    if (const auto time = parseTime(text))
        return *time;
    throw BadParameter(name, std::string(name) + " " + kTimes + text + "'");
}

Span parseRange(const Parameters &parameters, Seconds now) {
    const std::string *from = valueOf(parameters, "from");
    const std::string *to = valueOf(parameters, "to");
    const Seconds begin =
        from != nullptr ? parseWhen("from", *from, now) : periodAt(Level::kDay, now).from;
    const Span range =
        to != nullptr ? Span{begin, parseWhen("to", *to, now)} : untilNow(begin, now);
    if (range.from >= range.to)
        throw BadParameter("to", "from must be before to");
    if (from != nullptr && to == nullptr && range.from > now)
        throw BadParameter("from", "from is in the future");
    return range;
}

std::vector<std::string> splitList(const std::string &list) {
    std::vector<std::string> words;
    for (std::size_t from = 0; from <= list.size();) {
        const std::size_t comma = std::min(list.find(',', from), list.size());
        words.push_back(list.substr(from, comma - from));
        from = comma + 1;
    }
    return words;
}

std::vector<std::string> parseBy(const Parameters &parameters) {
    const std::string *list = valueOf(parameters, "by");
    std::vector<std::string> by;
    for (const std::string &word : splitList(list != nullptr ? *list : "device")) {
        if (word != "device" && word != "application" && word != "category")
            throw BadParameter("by", "by is a list of device, application and category, not '" +
                                         word + "'");
        if (std::find(by.begin(), by.end(), word) == by.end())
            by.push_back(word);
    }
    return by;
}

Level parseStep(const std::string &text) {
    if (text == "hour")
        return Level::kHour;
    if (text == "day")
        return Level::kDay;
    if (text == "month")
        return Level::kMonth;
    throw BadParameter("step", "step is hour, day or month, not '" + text + "'");
}

Sort parseSort(const std::string &text) {
    if (text == "down")
        return Sort::kDown;
    if (text == "up")
        return Sort::kUp;
    if (text == "total")
        return Sort::kTotal;
    if (text == "name")
        return Sort::kName;
    throw BadParameter("sort", "sort is down, up, total or name, not '" + text + "'");
}

std::size_t parseTop(const std::string &text) {
    const auto top = parseNumber(text, kMostRows);
    if (!top || *top == 0)
        throw BadParameter("top", "top is a number from 1 to " + std::to_string(kMostRows) +
                                      ", not '" + text + "'");
    return *top;
}

void filterDevices(const Parameters &parameters, const Directory &directory, Question &question) {
    for (const auto &[name, text] : parameters) {
        if (name != "device")
            continue;
        const auto meant = directory.meant(text);
        if (meant.empty() && !parseMac(text))
            throw BadParameter("device", "'" + text + "' is no MAC address and no device's name");
        if (!question.devices)
            question.devices.emplace();
        question.devices->insert(meant.begin(), meant.end());
    }
}

// Several values of one name widen, the two names narrow each other.
void filterApplications(const Parameters &parameters, const Directory &directory,
                        Question &question) {
    const auto matches = [&](std::string_view name, const std::string &text) {
        bool asked = false;
        for (const auto &[key, value] : parameters) {
            if (key == name && sameText(value, text))
                return true;
            asked = asked || key == name;
        }
        return !asked;
    };
    const bool asked = std::any_of(parameters.begin(), parameters.end(), [](const auto &parameter) {
        return parameter.first == "application" || parameter.first == "category";
    });
    if (!asked)
        return;
    question.applications.emplace();
    for (const auto &[id, application] : directory.applications()) {
        if (matches("application", application.name.name) &&
            matches("category", application.name.category))
            question.applications->insert(id);
    }
}

} // namespace

const std::string *valueOf(const Parameters &parameters, std::string_view name) {
    const std::string *found = nullptr;
    for (const auto &[key, value] : parameters) {
        if (key != name)
            continue;
        if (found != nullptr)
            throw BadParameter(key, key + " is given twice");
        found = &value;
    }
    return found;
}

void allowOnly(const Parameters &parameters, std::initializer_list<std::string_view> names) {
    for (const auto &[key, value] : parameters) {
        if (std::find(names.begin(), names.end(), key) == names.end())
            throw BadParameter(key, "there is no parameter '" + key + "'");
    }
}

AskedUsage parseQuestion(const Parameters &parameters, const Directory &directory, Seconds now) {
    allowOnly(parameters,
              {"from", "to", "by", "step", "device", "application", "category", "sort", "top"});
    AskedUsage asked{.question = {}, .by = parseBy(parameters)};
    Question &question = asked.question;
    question.range = parseRange(parameters, now);
    for (const std::string &name : asked.by) {
        question.byDevice = question.byDevice || name == "device";
        question.byApplication = question.byApplication || name == "application";
        question.byCategory = question.byCategory || name == "category";
    }
    if (const std::string *step = valueOf(parameters, "step"))
        question.step = parseStep(*step);
    if (const std::string *sort = valueOf(parameters, "sort"))
        question.sort = parseSort(*sort);
    if (const std::string *top = valueOf(parameters, "top"))
        question.top = parseTop(*top);
    filterDevices(parameters, directory, question);
    filterApplications(parameters, directory, question);
    return asked;
}

} // namespace usage
