#include "settings/store_check.h"

#include "common/file.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <lmdb.h>
#include <sys/stat.h>

// The layout of LMDB 0.9's file: in the machine's own byte order and word size.
namespace {

using Word = std::size_t;
constexpr Word kNoPage = ~Word{0};
constexpr Word kFirstDataPage = 2;

struct PageHeader {
    Word number;
    std::uint16_t unused;
    std::uint16_t flags;
    std::uint16_t lower; // the end of the nodes' offsets; with upper, an overflow's count of pages
    std::uint16_t upper; // where the nodes begin
};
constexpr std::size_t kHeaderSize = sizeof(Word) + 8;
static_assert(sizeof(PageHeader) == kHeaderSize);

enum PageFlags : std::uint16_t { kBranch = 1, kLeaf = 2, kOverflow = 4, kMeta = 8 };

struct NodeHeader {
    std::uint16_t low; // of the data's size, or of the child's page
    std::uint16_t high;
    std::uint16_t flags; // of a branch: further bits of the page
    std::uint16_t key_size;
};
constexpr std::uint16_t kInOverflow = 1;

struct Tree {
    std::uint32_t page_size; // of the free pages' tree
    std::uint16_t flags;
    std::uint16_t depth;
    Word counts[4];
    Word root;
};

struct Meta {
    std::uint32_t magic;
    std::uint32_t version;
    void *address;
    Word map_size;
    Tree free;
    Tree settings;
    Word last_page;
    Word transaction;
};
constexpr std::uint32_t kMagic = 0xBEEFC0DE;
constexpr std::uint32_t kVersion = 1;
constexpr std::uint16_t kFreeFlags = MDB_INTEGERKEY;
constexpr std::uint16_t kDeepest = 32;
constexpr std::size_t kLargestPage = 65536;
constexpr Word kMostPages = Word{1} << 20;

bool read_at(int data, void *to, std::size_t size, off_t at) {
    return pread(data, to, size, at) == static_cast<ssize_t>(size);
}

template <typename T>
T load(const unsigned char *from) {
    T value;
    memcpy(&value, from, sizeof value);
    return value;
}

bool read_meta(int data, off_t page_at, Meta &meta) {
    PageHeader header;
    return read_at(data, &header, sizeof header, page_at) && (header.flags & kMeta) != 0 &&
           read_at(data, &meta, sizeof meta, page_at + off_t{kHeaderSize}) &&
           meta.magic == kMagic && meta.version == kVersion;
}

bool is_page_size(std::size_t size) {
    return size >= 512 && size <= kLargestPage && (size & (size - 1)) == 0;
}

// The states that LMDB can start from; which one is the newer is decided as it does.
struct Metas {
    std::array<Meta, 2> both;

    [[nodiscard]] std::size_t newest() const {
        return both[0].transaction < both[1].transaction ? 1 : 0;
    }
    // To the byte: one that was just being written may have been read in part.
    [[nodiscard]] bool same_as(const Metas &other) const {
        return memcmp(&both, &other.both, sizeof both) == 0;
    }
};

bool read_metas(int data, Metas &metas) {
    return read_meta(data, 0, metas.both[0]) && is_page_size(metas.both[0].free.page_size) &&
           read_meta(data, metas.both[0].free.page_size, metas.both[1]);
}

using Page = routerutil::Allocated<unsigned char>;

class Walk {
  public:
    Walk(int data, Word file_size, const Meta &meta)
        : data_(data), page_size_(meta.free.page_size), pages_(file_size / page_size_),
          last_page_(meta.last_page),
          seen_(static_cast<unsigned char *>(calloc(meta.last_page / 8 + 1, 1))) {}

    [[nodiscard]] bool has_memory() const { return seen_ != nullptr && has_memory_; }

    bool tree(const Tree &tree, bool of_free_pages) {
        of_free_pages_ = of_free_pages;
        if (tree.root == kNoPage || tree.depth == 0)
            return tree.root == kNoPage && tree.depth == 0;
        return tree.depth <= kDeepest && subtree(tree.root, tree.depth);
    }

  private:
    // A page belongs to one place alone: to a tree, or to the free ones.
    bool take(Word first, Word count) {
        if (first < kFirstDataPage || first > last_page_ || count > last_page_ - first + 1)
            return false;
        for (Word page = first; page < first + count; ++page) {
            const auto bit = static_cast<unsigned char>(1U << page % 8);
            if ((seen_.get()[page / 8] & bit) != 0)
                return false;
            seen_.get()[page / 8] |= bit;
        }
        return true;
    }

    bool take_in_file(Word first, Word count) {
        return take(first, count) && first + count <= pages_;
    }

    bool read(Word page, void *to, std::size_t size) const {
        return read_at(data_, to, size, static_cast<off_t>(page * page_size_));
    }

    bool subtree(Word number, int depth) {
        const Page page(static_cast<unsigned char *>(malloc(page_size_)));
        has_memory_ = has_memory_ && page != nullptr;
        if (page == nullptr || !take_in_file(number, 1) || !read(number, page.get(), page_size_))
            return false;
        const auto header = load<PageHeader>(page.get());
        if (header.number != number || header.flags != (depth > 1 ? kBranch : kLeaf) ||
            header.lower < kHeaderSize || header.lower > header.upper ||
            header.upper > page_size_ || header.lower % 2 != 0)
            return false;
        const std::size_t nodes = (header.lower - kHeaderSize) / 2;
        if (nodes < (depth > 1 && !of_free_pages_ ? 2U : 1U))
            return false;
        for (std::size_t i = 0; i < nodes; ++i) {
            if (!node(page.get(), load<std::uint16_t>(page.get() + kHeaderSize + 2 * i), depth))
                return false;
        }
        return true;
    }

    bool node(const unsigned char *page, std::size_t at, int depth) {
        const std::size_t upper = load<PageHeader>(page).upper;
        if (at < upper || at % 2 != 0 || at + sizeof(NodeHeader) > page_size_)
            return false;
        const auto header = load<NodeHeader>(page + at);
        const std::size_t data_at = at + sizeof header + header.key_size;
        if (data_at > page_size_)
            return false;
        if (depth == 1)
            return leaf(page, data_at, header);
        auto child = Word{header.low} | Word{header.high} << 16;
        if constexpr (sizeof(Word) > 4)
            child |= Word{header.flags} << 32;
        return subtree(child, depth - 1);
    }

    bool leaf(const unsigned char *page, std::size_t data_at, const NodeHeader &header) {
        if (header.key_size == 0 || (of_free_pages_ && header.key_size != sizeof(Word)))
            return false;
        const std::size_t size = header.low | std::size_t{header.high} << 16;
        if (header.flags == kInOverflow)
            return data_at + sizeof(Word) <= page_size_ &&
                   overflow(load<Word>(page + data_at), size);
        return header.flags == 0 && data_at + size <= page_size_ &&
               (!of_free_pages_ || free_pages(page + data_at, size));
    }

    bool overflow(Word number, std::size_t size) {
        PageHeader header;
        const Word count = (kHeaderSize - 1 + size) / page_size_ + 1;
        if (!take_in_file(number, count) || !read(number, &header, sizeof header))
            return false;
        const Word told = header.lower | Word{header.upper} << 16;
        if (header.number != number || header.flags != kOverflow || told != count)
            return false;
        return !of_free_pages_ || free_pages_in_overflow(number, size);
    }

    bool free_pages_in_overflow(Word number, std::size_t size) {
        const Page list(static_cast<unsigned char *>(malloc(size)));
        has_memory_ = has_memory_ && list != nullptr;
        return list != nullptr &&
               read_at(data_, list.get(), size,
                       static_cast<off_t>(number * page_size_ + kHeaderSize)) &&
               free_pages(list.get(), size);
    }

    // How many there are, then their numbers, the largest first.
    bool free_pages(const unsigned char *list, std::size_t size) {
        const std::size_t words = size / sizeof(Word);
        if (size % sizeof(Word) != 0 || words == 0 || load<Word>(list) > words - 1)
            return false;
        Word before = last_page_ + 1;
        for (std::size_t i = 1; i <= load<Word>(list); ++i) {
            const Word page = load<Word>(list + i * sizeof(Word));
            if (page >= before || !take(page, 1))
                return false;
            before = page;
        }
        return true;
    }

    int data_;
    std::size_t page_size_;
    Word pages_; // in the file
    Word last_page_;
    Page seen_;
    bool of_free_pages_ = false;
    bool has_memory_ = true;
};

int check_newest(int data, Word file_size, const Metas &metas) {
    const std::size_t newest = metas.newest();
    const Meta &meta = metas.both[newest];
    if (meta.free.page_size != metas.both[0].free.page_size || meta.transaction % 2 != newest ||
        meta.last_page >= kMostPages || meta.free.flags != kFreeFlags || meta.settings.flags != 0)
        return MDB_CORRUPTED;
    Walk walk(data, file_size, meta);
    if (!walk.has_memory())
        return ENOMEM;
    const bool good = walk.tree(meta.free, true) && walk.tree(meta.settings, false);
    if (!walk.has_memory())
        return ENOMEM;
    return good ? 0 : MDB_CORRUPTED;
}

} // namespace

int store::check_file(int data) {
    for (;;) {
        struct stat status {};
        Metas before;
        const bool begun = read_metas(data, before);
        if (fstat(data, &status) != 0) // now: whatever these speak of has been written before them
            return errno;
        if (status.st_size == 0)
            return 0;
        if (!begun)
            return MDB_INVALID;
        const int result = check_newest(data, static_cast<Word>(status.st_size), before);
        Metas after;
        // What was written meanwhile may have taken the place of what was looked at.
        if (result == 0 || !read_metas(data, after) || after.same_as(before))
            return result;
    }
}
