/*
 * Raw access to the router's flash partitions through the kernel's MTD devices: find one by name,
 * erase it, write it erase block by erase block, read an image of it.
 *
 * A locked block is unlocked right before its erase, and stays unlocked; the others keep their
 * locks. One that does not unlock fails at its erase.
 *
 * Errors are printed to standard error as the system's error text with the partition's name or
 * path before it, unless said otherwise.
 */
#ifndef BOARD_MTD_UTIL_H
#define BOARD_MTD_UTIL_H

#ifdef __cplusplus
extern "C" {
#endif

/* Bytes that read_mtd_data copies. */
#define MTD_IMAGE_SIZE 65536

/*
 * Opens the flash device of a partition: "/dev/mtd<N>" for the first line of "/proc/mtd" that
 * begins with "mtd<N>:" and contains name anywhere, be it in the name column or in another. When
 * there is no such line, name itself is opened as a path. An empty name is on no line.
 *
 * flags are those of open(). Returns a descriptor that the caller closes, or -1 with errno set.
 */
int mtd_open(const char *name, int flags);

/*
 * Erases the whole partition that mtd_open finds for name, erase block by erase block.
 *
 * Returns 0, or the system's error number: of the failed open, of the failed request for the
 * geometry, of the first erase that failed (blocks after it are not touched), or EINVAL when the
 * partition is not a whole number of erase blocks (nothing is erased then). A partition of size 0
 * gives 0.
 *
 * On NAND a bad block is an erase that failed (EIO): it is neither skipped nor tried again.
 */
int mtd_erase(const char *name);

/*
 * Erases and writes length bytes from the start of the flash device at path. Unlike mtd_erase it
 * takes a path only and does not look into "/proc/mtd".
 *
 * The data go out in chunks of one erase block (of length bytes when that is less), each behind
 * the erase of its block. When length is not a multiple of the chunk, the last chunk is filled up
 * with 0xFF. A length of 0 writes nothing.
 *
 * Returns 0, or -1: when the device cannot be opened or does not tell its geometry; when length is
 * negative, buffer is missing, or the erase blocks that length covers pass the partition's end
 * (in all these cases flash is untouched); when an erase fails or a write is short. The latter
 * leaves the blocks before the failing one written, that one in an unknown state and those after
 * it untouched.
 *
 * On NAND the kernel takes whole pages only: a length below an erase block that is no multiple of
 * the page (writesize of MEMGETINFO) erases the first block and then fails. A bad block fails at
 * its erase; nothing is moved behind it.
 */
int mtd_write(const char *path, const unsigned char *buffer, int length);

/*
 * Copies the first MTD_IMAGE_SIZE bytes of the block device (or file) at path into buffer, which
 * has at least that much room. What another program wrote to the flash device since is seen, also
 * while the block device is open elsewhere; only a mapping of it that is still in place keeps the
 * old bytes.
 *
 * Returns 0, or -1 when it cannot be opened (the printed prefix is "open"), is shorter, cannot be
 * read (EIO, as of NAND beyond correction), or cannot be mapped; buffer is untouched then.
 */
int read_mtd_data(unsigned char *buffer, const char *path);

#ifdef __cplusplus
}
#endif

#endif
