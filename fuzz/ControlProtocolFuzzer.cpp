// A request or reply line of any content, as a client or the running instance reads it (up to the
// first newline, at most 4095 bytes): a decoded command re-encodes to a line that decodes to the
// same command, one argument each, and a decoded reply says the same after going over the wire
// again.
#include "FuzzSupport.h"
#include "app/client/ControlProtocol.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const qsizetype newline = bytes.indexOf('\n');
    if (newline >= 0) bytes.truncate(newline + 1);
    bytes.truncate(4095);

    const QStringList command = ControlProtocol::decodeRequest(bytes);
    const QByteArray request = ControlProtocol::encodeRequest(command);
    FUZZ_CHECK(request.endsWith('\n') && request.count('\n') == 1, request);
    FUZZ_CHECK(ControlProtocol::decodeRequest(request) == command, request);

    const ControlProtocol::Reply reply = ControlProtocol::decodeReply(bytes);
    const QByteArray line = ControlProtocol::encodeReply(reply);
    FUZZ_CHECK(line.endsWith('\n') && line.count('\n') == 1, line);
    const ControlProtocol::Reply again = ControlProtocol::decodeReply(line);
    FUZZ_CHECK(again.ok == reply.ok && again.text == reply.text, line);
    return 0;
}
