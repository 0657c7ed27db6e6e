/*
 * NOR flash in memory, for the router in a machine: as "mtd0" to "mtd5" when no other flash is
 * there, six partitions of four erase blocks of 64 KiB.
 *
 * What is erased is 0xFF, and a write only clears bits. Every block is locked until it is unlocked,
 * and a locked one is neither erased nor written (EROFS). At first there are zeros in all of them.
 */
#include <linux/module.h>
#include <linux/mtd/mtd.h>
#include <linux/mtd/partitions.h>

enum { kBlock = 0x10000, kPartition = 4 * kBlock, kSize = 6 * kPartition };

static int stuck = -1;
module_param(stuck, int, 0444);
MODULE_PARM_DESC(stuck, "a block that does not unlock (EIO), counted from the start of mtd0");

static u8 memory[kSize];
static bool locked[kSize / kBlock];

static bool whole_blocks(uint64_t start, uint64_t length) {
    return start % kBlock == 0 && length % kBlock == 0;
}

static int norsim_lock(struct mtd_info *mtd, loff_t start, uint64_t length) {
    if (!whole_blocks(start, length))
        return -EINVAL;
    memset(locked + mtd_div_by_eb(start, mtd), true, mtd_div_by_eb(length, mtd));
    return 0;
}

static int norsim_unlock(struct mtd_info *mtd, loff_t start, uint64_t length) {
    const int first = mtd_div_by_eb(start, mtd), count = mtd_div_by_eb(length, mtd);
    if (!whole_blocks(start, length))
        return -EINVAL;
    if (first <= stuck && stuck < first + count)
        return -EIO;
    memset(locked + first, false, count);
    return 0;
}

/* Whether a block that has some of the bytes is locked. */
static int norsim_is_locked(struct mtd_info *mtd, loff_t start, uint64_t length) {
    uint32_t block = mtd_div_by_eb(start, mtd);
    const uint32_t last = mtd_div_by_eb(start + length - 1, mtd);
    for (; block <= last; ++block) {
        if (locked[block])
            return 1;
    }
    return 0;
}

static int norsim_erase(struct mtd_info *mtd, struct erase_info *request) {
    if (!whole_blocks(request->addr, request->len))
        return -EINVAL;
    if (norsim_is_locked(mtd, request->addr, request->len))
        return -EROFS;
    memset(memory + request->addr, 0xFF, request->len);
    return 0;
}

static int norsim_read(struct mtd_info *mtd, loff_t start, size_t length, size_t *done, u8 *data) {
    memcpy(data, memory + start, length);
    *done = length;
    return 0;
}

static int norsim_write(struct mtd_info *mtd, loff_t start, size_t length, size_t *done,
                        const u8 *data) {
    if (norsim_is_locked(mtd, start, length))
        return -EROFS;
    for (*done = 0; *done < length; ++*done)
        memory[start + *done] &= data[*done];
    return 0;
}

static struct mtd_info flash = {
    .name = "norsim",
    .owner = THIS_MODULE,
    .type = MTD_NORFLASH,
    .flags = MTD_CAP_NORFLASH,
    .size = kSize,
    .erasesize = kBlock,
    .writesize = 1,
    .writebufsize = 1,
    ._erase = norsim_erase,
    ._read = norsim_read,
    ._write = norsim_write,
    ._lock = norsim_lock,
    ._unlock = norsim_unlock,
    ._is_locked = norsim_is_locked,
};

#define PARTITION(number) \
    { .name = "NOR partition " #number, .offset = MTDPART_OFS_APPEND, .size = kPartition }
static const struct mtd_partition partitions[] = {PARTITION(0), PARTITION(1), PARTITION(2),
                                                  PARTITION(3), PARTITION(4), PARTITION(5)};

static int __init norsim_start(void) {
    norsim_lock(&flash, 0, kSize);
    return mtd_device_register(&flash, partitions, ARRAY_SIZE(partitions));
}

static void __exit norsim_end(void) {
    mtd_device_unregister(&flash);
}

module_init(norsim_start);
module_exit(norsim_end);
MODULE_DESCRIPTION("NOR flash in memory, with locks");
MODULE_LICENSE("Dual MIT/GPL");
