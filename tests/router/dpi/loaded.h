// Loads a database file and tells what its records hold.
#pragma once

#include "dpi/conf_app.h"

#include "support/fixture.h"

namespace rig {

// Each record of a file of this content, in order, as show tells it.
template <typename Record, typename Show>
std::vector<std::string> loaded(const char *path, const std::string &content,
                                int (*init)(list_head *head), void (*release)(list_head *head),
                                Show show) {
    writeFile(path, content);
    list_head list = LIST_HEAD_INIT(list);
    EXPECT_EQ(init(&list), 0);
    std::vector<std::string> result;
    for (list_head *link = list.next; link != &list; link = link->next)
        result.push_back(show(*LIST_RECORD(link, Record, list)));
    release(&list);
    return result;
}

} // namespace rig
