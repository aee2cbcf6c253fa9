/* SPDX-License-Identifier: MIT */
#include <linux/netlink.h>

#include "misaligned.h"
#include "peer.h"

using namespace vostest;

MISALIGNED_BUFFER("g_vosMsgBufferRecv");

TEST(MisalignedNetlinkMessage, FailsTheAssertionBeforeItIsExamined) {
    const Outcome outcome = run([] {
        openChannel("board", 3);
        const int kernel = socket(AF_NETLINK, SOCK_RAW, NETLINK_USERSOCK);
        sockaddr_nl to{};
        to.nl_family = AF_NETLINK;
        to.nl_pid = static_cast<uint32_t>(getpid());
        const Bytes datagram = Bytes{}.fill(48);
        EXPECT_EQ(sendto(kernel, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr *>(&to), sizeof to),
                  48);
        receive(100, 0);
    });
    EXPECT_TRUE(outcome.killedBy(SIGABRT));
    EXPECT_THAT(outcome.output, testing::HasSubstr("Assertion failed!0 == ((uintptr_t)pMsgRecv)%ZEB_LONGBYTES, "
                                                   "vos/linux/vosMsg, vosMsgNetlinkUniProcess, line="));
}
