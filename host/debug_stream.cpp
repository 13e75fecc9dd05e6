// The firmware's debug library: the stream, which a program at the bench points where it likes, and the flags of
// message buffers.
#include <velkor/diagnostics.h>
#include <velkor/firmware.h>

FILE *fpDebugFile = nullptr;

namespace {

uint32_t mask_of(int bit) { return bit >= 0 && bit < 32 ? uint32_t{1} << bit : 0; }

}  // namespace

int RtMsgEx_gFlag(RtMsgBuf *buffer, int bit) { return (buffer->flags & mask_of(bit)) != 0 ? 1 : 0; }

void RtMsgEx_sFlag(RtMsgBuf *buffer, int bit, int value) {
    buffer->flags = value != 0 ? buffer->flags | mask_of(bit) : buffer->flags & ~mask_of(bit);
}
