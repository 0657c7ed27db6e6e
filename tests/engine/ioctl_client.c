/* Sends one request to the engine, as any program does: ioctl_client NR OP CAPACITY. Prints the
 * result, the errno and the used length. */
#include "dpi/usr_ioctl.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ioctl.h>

int main(int argc, char **argv) {
    uint32_t used = 0;
    struct forward_ioctl header = {.magic = IDPFW_MAGIC, .out_used_len = &used};
    const int device = open(IDPFW_DEVICE, O_RDWR);
    if (argc != 4 || device < 0) {
        perror(IDPFW_DEVICE);
        return 1;
    }
    header.nr = (uint8_t)atoi(argv[1]);
    header.op = (uint8_t)atoi(argv[2]);
    header.out_len = (uint32_t)atoi(argv[3]);
    header.out = calloc(1, header.out_len);
    errno = 0;
    const int result = ioctl(device, IDPFW_REQUEST(header.nr), &header);
    printf("%d %d %u\n", result, errno, used);
    return 0;
}
