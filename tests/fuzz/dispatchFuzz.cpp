/* SPDX-License-Identifier: MIT */
/* Any bytes to any message socket. The first byte chooses the entry: the dispatcher with the bytes as one message in a
 * buffer of exactly its capacity, the kernel's datagram, or the process's real sockets and its receive loop.
 *
 *     0  dispatcher, capacity of a main buffer    4  high socket
 *     1  dispatcher, capacity of the message      5  normal socket, while a tap is on
 *     2  netlink datagram                         others: as their value modulo 6
 *     3  normal socket
 */
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/assertion.h"
#include "vos.h"
#include "vosMsg/address.h"
#include "vosMsg/message.h"

namespace {

jmp_buf back;
volatile uint32_t sink;

/* Reads every byte that a handler gets, so that the sanitizer finds bytes which it must not get. */
void readAll(const void *bytes, std::size_t length) {
    uint32_t sum = 0;
    for (std::size_t i = 0; i < length; ++i) sum += static_cast<const uint8_t *>(bytes)[i];
    sink = sum;
}

int32_t onPacket(uint8_t *data, int32_t length, VOS_PKT_INFO info, VOS_PKT_EXT ext) {
    if (length < 0) abort();
    readAll(data, static_cast<std::size_t>(length));
    readAll(&info, sizeof info);
    readAll(&ext, sizeof ext);
    return 0;
}

int32_t onLink(uint32_t, uint32_t) { return 0; }
int32_t onVlan(uint32_t, uint32_t, uint32_t) { return 0; }
int32_t onMac(uint32_t, uint32_t, uint32_t, void *) { return 0; }

/* The words of the request decide what the handlers return, also values that no handler should return. */
int32_t onBuild(char *text, int32_t *capacity, uint32_t value1, uint32_t value2) {
    readAll(text, static_cast<std::size_t>(*capacity));
    memset(text, 'c', static_cast<std::size_t>(*capacity));
    if (value1 != 0) *capacity = static_cast<int32_t>(value2);
    return value1 == 2 ? -1 : 0;
}

int32_t onObject(uint32_t operation, char *name, uint32_t *indexes, int32_t *count, void *value, uint32_t *length,
                 uint16_t *word) {
    if (*count < 0) abort();
    readAll(name, strlen(name));
    readAll(indexes, static_cast<std::size_t>(*count) * sizeof *indexes);
    if (operation % 2 == 0) memset(value, 'v', *length);
    if (operation == 3) *count = 0x7FFFFFFF;
    if (operation == 5) *count = -1;
    if (operation == 7) *length += *word;
    if (operation == 9) *count += *word;
    return operation == 11 ? -1 : 0;
}

int32_t onInfo(char *name, uint32_t argument, uint32_t *o1, uint32_t *, uint32_t *, uint32_t *, uint32_t *, uint32_t *,
               uint32_t *table, uint32_t *count, uint32_t *, uint32_t *, uint32_t *) {
    readAll(name, strlen(name));
    *o1 = argument;
    memset(table, 1, 32 * sizeof *table);
    *count = argument;
    return 0;
}

int client = -1;

void dropMail() {
    char byte = 0;
    while (recv(client, &byte, 1, MSG_DONTWAIT) >= 0) continue;
}

/* The message is in a heap block of exactly its capacity, so that the sanitizer finds an access past its end. */
void dispatch(const uint8_t *data, std::size_t size, std::size_t capacity, bool netlink) {
    size = std::min(size, capacity);
    const std::unique_ptr<uint8_t[]> block{new uint8_t[capacity]()};
    std::copy_n(data, size, block.get());
    const vos::LocalAddress sender{"/tmp/vos/fuzz"};
    const vos::Arrival arrival{g_vosFdProc, {block.get(), size}, capacity, sender.get(), sender.length()};
    if (setjmp(back) != 0) return; /* a failed assertion jumps to here, and the block is released */
    if (netlink)
        vos::handleNetlinkDatagram("fuzz", arrival);
    else
        vos::vosMsgProcessInternel(arrival);
}

void throughSocket(const char *path, const uint8_t *data, std::size_t size) {
    const vos::LocalAddress to{path};
    if (sendto(client, data, size, MSG_DONTWAIT, to.get(), to.length()) < 0) return;
    static uint8_t payload[vos::kMaxPayload];
    VOS_MSG_PEER peer;
    if (setjmp(back) != 0) return;
    const uint32_t capacity = size % 3 == 0 ? vos::kMaxPayload : static_cast<uint32_t>(size / 2);
    const int32_t received = vosMsgRecv(0, payload, capacity, 0, &peer);
    if (received >= 0) vosMsgResp(0, 0, payload, static_cast<uint32_t>(received), &peer);
}

/* Switches the client's own tap, which the bytes of an input may have switched on, too. */
void switchTap(uint32_t action, uint32_t limit) {
    VOS_MSG_TAP_SWITCH request{};
    request.stHead.ulType = VOS_MSG_TAP;
    request.stHead.ulValue1 = action;
    request.stHead.ulValue2 = limit;
    request.stHead.ulBufLen = sizeof request.acPath;
    strcpy(request.acPath, "/tmp/vos/fuzz");
    uint8_t bytes[sizeof request];
    memcpy(bytes, &request, sizeof request);
    dispatch(bytes, sizeof bytes, sizeof bytes, false);
}

}  // namespace

/* A failed assertion is a specified result, so the run continues after it. */
void vos::assertionFailed(const char *, const char *, Caller, int) { longjmp(back, 1); }

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    static int reserved;
    strcpy(szVosProcName, "fuzz");
    vosDebugConfig(0);
    if (vosMsgInit("target", 1, &reserved) != VOS_OK) abort();
    client = socket(AF_UNIX, SOCK_DGRAM, 0);
    const vos::LocalAddress self{"/tmp/vos/fuzz"};
    if (bind(client, self.get(), self.length()) != 0) abort();
    vosMsgRegisterPkt(onPacket);
    vosMsgRegisterPortLink(0, onLink);
    vosMsgRegisterPortLink(1, onLink);
    vosMsgRegisterVlanintfLink(onVlan);
    vosMsgRegisterMac(onMac);
    vosMsgRegisterBldrun(onBuild);
    vosMsgRegisterCcd(onObject);
    vosMsgRegisterCcdObjInfoGet(onInfo);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const uint8_t entry = data[0] % 6;
    ++data;
    --size;
    /* A redirection would hide the fuzzer's own output, and trace would fill it. */
    if (size >= 4 && data[0] == VOS_MSG_STDOUT_REDIRECT) return 0;
    switch (entry) {
        case 0:
            dispatch(data, size, VOS_MSG_BUFFER_LEN, false);
            break;
        case 1:
            dispatch(data, size, std::max<std::size_t>(size, 1), false);
            break;
        case 2:
            dispatch(data, size, VOS_MSG_BUFFER_LEN, true);
            break;
        case 3:
            throughSocket("/tmp/vos/target", data, size);
            break;
        case 4:
            throughSocket("/tmp/vos/targetHigh", data, size);
            break;
        default:
            switchTap(VOS_MSG_TAP_ON, static_cast<uint32_t>(size / 2));
            if (!vos::tapped()) abort();
            throughSocket("/tmp/vos/target", data, size);
            break;
    }
    switchTap(VOS_MSG_TAP_OFF, 0);
    if (vos::tapped()) abort();
    vosDebugConfig(0);
    dropMail();
    return 0;
}
