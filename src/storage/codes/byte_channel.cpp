#include "storage/codes/byte_channel.h"

#include "shell/protocol/reply.h"

void require_bytes(const ByteChannel& channel, int64_t bytes) {
    if (bytes < 0 || channel.remaining() < bytes) throw_command_error("can't read from file (unexpected end of file)");
}
