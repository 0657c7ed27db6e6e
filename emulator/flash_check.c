/*
 * Board data on real flash devices: "/dev/mtd4" has 64 KiB at least, "mtd5" has more than one erase
 * block. Run as
 *   flash_check good    for every size of erase blocks
 *   flash_check bad     on NAND where mtd5 has erase blocks of 16 KiB and its third is bad
 *   flash_check locked  on NOR with erase blocks of 64 KiB, all of them locked, where mtd4 has four
 *                       that hold zeros
 *   flash_check stuck   on NOR of the same kind where mtd5's third block does not unlock
 */
#include "bd_util.h"

#include <errno.h>
#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

enum { kTextSize = 65, kSmall = 1000, kNandBlock = 0x4000, kNorBlock = 0x10000 };

static int failures;

static void check(int condition, const char *what) {
    if (!condition) {
        printf("failed: %s\n", what);
        ++failures;
    }
}
#define CHECK(condition) check((condition), #condition)

static void whole_images(void) {
    static unsigned char image[BOARD_DATA_SIZE], back[BOARD_DATA_SIZE];
    /* Whoever holds the block device open keeps its pages, which must not be taken for flash. */
    const int holder = open("/dev/mtdblock4", O_RDONLY);
    CHECK(read(holder, back, sizeof back) == (ssize_t)sizeof back);
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < BOARD_DATA_SIZE; ++i)
            image[i] = (unsigned char)(i * 31 + i / 256 + round * 85);
        CHECK(write_board_data(image) == 0);
        CHECK(read_board_data(back) == 0);
        CHECK(memcmp(image, back, sizeof image) == 0); /* a missing erase would only clear bits */
    }
    close(holder);
}

/* What was written first survives the rewriting of the block that the later fields cause. */
static void fields_and_records(void) {
    static unsigned char blank[BOARD_DATA_SIZE];
    const unsigned char first[6] = {2, 0, 94, 0, 0, 1}, second[6] = {2, 0, 94, 0, 0, 2};
    unsigned char mac1[6], mac2[6];
    char text[kTextSize], region[BD_REGION_SIZE], language[BD_LANGUAGE_SIZE];
    char zone[BD_TIME_ZONE_SIZE], offset[BD_OFFSET_SIZE];
    uint32_t code = 0;
    memset(blank, 0xFF, sizeof blank);
    CHECK(write_board_data(blank) == 0);
    CHECK(bd_write_sn("SERIAL-0123456789") == 0);
    CHECK(bd_write_eth_mac(first, second) == 0);
    CHECK(bd_write_pin("12345670") == 0);
    CHECK(bd_write_sku_info(9) == 0);
    CHECK(bd_write_ssid("The name of the 2nd band", 2) == 0);
    CHECK(bd_write_passphrase("correct horse", 1) == 0);

    CHECK(bd_read_sn(text, 32) == 0 && strncmp(text, "SERIAL-0123456789", 17) == 0);
    CHECK(bd_read_eth_mac(mac1, mac2) == 0);
    CHECK(memcmp(mac1, first, 6) == 0 && memcmp(mac2, second, 6) == 0);
    CHECK(bd_read_pin(text, 8) == 0 && strcmp(text, "12345670") == 0);
    CHECK(bd_read_sku_info(&code, region, sizeof region, language, sizeof language, zone,
                           sizeof zone, offset, sizeof offset) == 0);
    CHECK(code == 9 && strcmp(region, "JP") == 0 && strcmp(language, "Japanese") == 0);
    CHECK(bd_read_ssid(text, sizeof text, 2) == 0 && strcmp(text, "The name of the 2nd band") == 0);
    CHECK(bd_read_passphrase(text, sizeof text, 1) == 0 && strcmp(text, "correct horse") == 0);
}

static int read_start(const char *device, unsigned char *bytes, size_t size) {
    const int file = open(device, O_RDONLY);
    const ssize_t got = read(file, bytes, size);
    close(file);
    return got == (ssize_t)size;
}

/* A write that is no whole number of erase blocks, and an erase of a partition by its name. */
static void raw_partitions(void) {
    const int length = 128 * 1024 + kSmall;
    unsigned char *data = malloc((size_t)length + 1), *back = malloc((size_t)length + 1);
    if (data == NULL || back == NULL)
        exit(1);
    for (int i = 0; i < length; ++i)
        data[i] = (unsigned char)(i * 13 + 1);
    CHECK(mtd_write("/dev/mtd5", data, length) == 0);
    CHECK(read_start("/dev/mtd5", back, (size_t)length + 1));
    CHECK(memcmp(data, back, (size_t)length) == 0 && back[length] == 0xFF);
    CHECK(mtd_write("/dev/mtd5", data, 1 << 30) == -1); /* longer than the partition */
    CHECK(mtd_write("/dev/null", data, kSmall) == -1);
    CHECK(read_start("/dev/mtd5", back, 1) && back[0] == data[0]);

    const int found = mtd_open("partition 5", O_RDONLY);
    CHECK(found >= 0 && read(found, back, 1) == 1 && back[0] == data[0]);
    close(found);
    CHECK(mtd_erase("partition 5") == 0);
    CHECK(read_start("/dev/mtd5", back, (size_t)length));
    CHECK(back[0] == 0xFF && memcmp(back, back + 1, (size_t)length - 1) == 0);
    CHECK(mtd_erase("no such partition") != 0);
    free(data);
    free(back);
}

static void all_of_it(void) {
    whole_images();
    fields_and_records();
    raw_partitions();
}

/* An erase and a write come to mtd5's third block, which fails, and stop there. */
static void failing_block(size_t block, int error) {
    static unsigned char data[4 * kNorBlock], back[4 * kNorBlock], old[4 * kNorBlock];
    memset(data, 'd', sizeof data);
    CHECK(read_start("/dev/mtd5", old, 4 * block));
    CHECK(mtd_erase("partition 5") == error);
    CHECK(mtd_write("/dev/mtd5", data, (int)(4 * block)) == -1);
    CHECK(read_start("/dev/mtd5", back, 4 * block));
    CHECK(memcmp(back, data, 2 * block) == 0);
    CHECK(memcmp(back + 2 * block, old + 2 * block, 2 * block) == 0);
}

static int locked(const char *device, uint32_t block) {
    struct erase_info_user place = {block * kNorBlock, kNorBlock};
    const int file = open(device, O_RDONLY);
    const int answer = ioctl(file, MEMISLOCKED, &place);
    close(file);
    return answer == 1;
}

/* What does not unlock gets nothing in; we unlock what we write, and nothing else. */
static void locked_blocks(void) {
    static unsigned char back[4 * kNorBlock], zeros[4 * kNorBlock];
    struct erase_info_user first = {0, kNorBlock};
    const int file = open("/dev/mtd4", O_RDWR);
    CHECK(ioctl(file, MEMERASE, &first) == -1 && errno == EROFS);
    CHECK(write(file, "x", 1) == -1 && errno == EROFS);
    close(file);
    all_of_it();
    CHECK(locked("/dev/mtd3", 3) && !locked("/dev/mtd4", 0) && !locked("/dev/mtd5", 3));
    for (uint32_t block = 1; block < 4; ++block)
        CHECK(locked("/dev/mtd4", block));
    CHECK(read_start("/dev/mtd4", back, sizeof back));
    CHECK(memcmp(back + kNorBlock, zeros, sizeof back - kNorBlock) == 0);
}

int main(int argc, char **argv) {
    const char *what = argc > 1 ? argv[1] : "good";
    if (strcmp(what, "bad") == 0) {
        const unsigned char data[kSmall] = {0};
        whole_images();
        failing_block(kNandBlock, EIO);
        CHECK(mtd_write("/dev/mtd5", data, kSmall) == -1); /* NAND takes whole pages only */
    } else if (strcmp(what, "locked") == 0) {
        locked_blocks();
    } else if (strcmp(what, "stuck") == 0) {
        whole_images();
        failing_block(kNorBlock, EROFS);
    } else {
        all_of_it();
    }
    return failures == 0 ? 0 : 1;
}
