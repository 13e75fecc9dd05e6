/* A program of somebody else: it asks libvelkor for memory, which comes from an import, and for a digest of it. */
#include <stdio.h>
#include <string.h>
#include <velkor/allocation.h>
#include <velkor/text.h>
#include <velkor_host.h>

int main(void) {
    static const uint8_t expected[] = {0xa9, 0x99, 0x3e, 0x36, 0x47, 0x06, 0x81, 0x6a, 0xba, 0x3e,
                                       0x25, 0x71, 0x78, 0x50, 0xc2, 0x6c, 0x9c, 0xd0, 0xd8, 0x9d};
    uint8_t digest[VELKOR_SHA1_DIGEST_SIZE];
    SHA1Context context;
    char *copy = dvrStrdup("abc", __FILE__, __LINE__);
    if (copy == NULL)
        return 1;
    SHA1Reset(&context);
    SHA1Input(&context, (const uint8_t *)copy, (uint32_t)strlen(copy));
    dvrFree(copy);
    if (SHA1Result(&context, digest) != VELKOR_SHA1_SUCCESS || memcmp(digest, expected, sizeof expected) != 0)
        return 2;
    puts("a digest from C");
    return 0;
}
