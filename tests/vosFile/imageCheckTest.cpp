/* SPDX-License-Identifier: MIT */
#include "vosFile/images.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST(ImageCheck, ASoundImageOfEachTypeIsAccepted) {
    putApplication();
    const Outcome outcome = run([] {
        EXPECT_EQ(check(1, bootImage("boot")), VOS_OK);
        EXPECT_EQ(check(2, applicationImage("application")), VOS_OK);
        EXPECT_EQ(check(3, packageOf(0, "")), VOS_OK);
        EXPECT_EQ(check(2, applicationImage("")), VOS_OK);
        const std::string other = "other" + imageHeader(77, "other");
        EXPECT_EQ(check(77, other), VOS_OK) << "other types end with their header";
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(ImageCheck, AnotherTypeIsRefusedBeforeAnyFileIsTouched) {
    run([] {
        EXPECT_THAT(Faults::record([] {
                        EXPECT_EQ(check(2, imageHeader(1, "x") + "x"), VOS_ERR_IMAGE_TYPE);
                        EXPECT_EQ(check(1, applicationImage("application")), VOS_ERR_IMAGE_TYPE);
                    }),
                    IsEmpty());
    });
}

TEST(ImageCheck, OnADeviceWithoutAnApplicationNothingIsAccepted) {
    const Outcome outcome = run([] {
        EXPECT_EQ(check(1, bootImage("boot")), VOS_ERROR);
        EXPECT_EQ(check(2, applicationImage("application")), VOS_ERROR);
        szAppFileName = nullptr;
        EXPECT_EQ(check(3, packageOf(0, "")), VOS_ERROR);
    });
    const std::string line = failedLine("vosFileImageCheck:open app file", ENOENT);
    EXPECT_THAT(outcome.messages(), ElementsAre(line, line, failedLine("vosFileImageCheck:open app file", EFAULT)));
}

TEST(ImageCheck, AnInstalledImageShorterThanAHeaderIsALine) {
    putFile(kApplication, std::string(15, 'x'));
    const Outcome outcome = run([] {
        errno = EPERM;
        EXPECT_EQ(check(2, applicationImage("application")), VOS_ERROR);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(failedLine("vosFileImageCheck:read app file", 0)));
}

TEST(ImageCheck, EachCompatibilityWordMustBeTheInstalledOne) {
    putApplication();
    run([] {
        for (const std::size_t byte : {0u, 3u, 4u, 7u}) {
            std::string words = kCompatible;
            words[byte] ^= 1;
            EXPECT_EQ(check(2, imageHeader(2, "x", words) + "x"), VOS_ERR_IMAGE_COMPAT);
            EXPECT_EQ(check(1, "x" + imageHeader(1, "x", words)), VOS_ERR_IMAGE_COMPAT);
            EXPECT_EQ(check(3, imageHeader(3, "x", words) + "x"), VOS_ERR_IMAGE_COMPAT);
        }
    });
}

TEST(ImageCheck, OneFlippedPayloadBitIsACrcMismatch) {
    putApplication();
    run([] {
        std::string image = applicationImage("application");
        image.back() ^= 0x10;
        EXPECT_EQ(check(2, image), VOS_ERR_IMAGE_CRC);
        image = bootImage("boot");
        image.front() ^= 1;
        EXPECT_EQ(check(1, image), VOS_ERR_IMAGE_CRC);
    });
}

TEST(ImageCheck, ShorterThanAHeaderOrNullIsRefusedWithoutReadingPastTheEnd) {
    putApplication();
    const Outcome outcome = run([] {
        for (uint32_t length = 0; length < 16; ++length) {
            const auto *const bytes =
                static_cast<uint8_t *>(calloc(length, 1)); /* so that the sanitizer finds an access past its end */
            for (uint32_t type = 0; type < 4; ++type) EXPECT_EQ(vosFileImageCheck(type, bytes, length), VOS_ERROR);
            free(const_cast<uint8_t *>(bytes));
        }
        EXPECT_EQ(vosFileImageCheck(2, nullptr, 100), VOS_ERROR);
    });
    EXPECT_THAT(outcome.messages(), SizeIs(16 * 4 + 1));
    EXPECT_THAT(outcome.messages(), testing::Each("vosFileImageCheck:parameter error."));
}

TEST(ImageCheck, EachFailingCall) {
    const auto attempts =
        failEachCall([] { putApplication(); }, [] { return check(2, applicationImage("application")); });
    expectNothingKept(attempts);
    EXPECT_THAT(namesOf(attempts), ElementsAre("open#1", "read#1", "close#1"));
    expectLines(attempts, "open#1", VOS_ERROR, {failedLine("vosFileImageCheck:open app file")});
    expectLines(attempts, "read#1", VOS_ERROR, {failedLine("vosFileImageCheck:read app file")});
    expectLines(attempts, "close#1", VOS_OK, {});
}

TEST(ImageCheckFile, AnImageInAFileIsCheckedLikeOneInMemory) {
    putApplication();
    putFile("/tmp/image", applicationImage("new"));
    run([] {
        EXPECT_EQ(vosFileImageCheckFile(2, "/tmp/image"), VOS_OK);
        EXPECT_EQ(vosFileImageCheckFile(3, "/tmp/image"), VOS_ERR_IMAGE_TYPE);
    });
}

TEST(ImageCheckFile, AFileOf16BytesOrLessAMissingOneAndNullFail) {
    putApplication();
    putFile("/tmp/image", applicationImage(""));
    const Outcome outcome = run([] {
        EXPECT_EQ(vosFileImageCheckFile(2, "/tmp/image"), VOS_ERROR);
        EXPECT_EQ(vosFileImageCheckFile(2, "/tmp/missing"), VOS_ERROR);
        EXPECT_EQ(vosFileImageCheckFile(2, nullptr), VOS_ERROR);
    });
    EXPECT_THAT(outcome.messages(), IsEmpty());
}

TEST(ImageCheckFile, AFileOf4GiBAndMoreFailsAlsoWhenItBeginsWithASoundImage) {
    putApplication();
    const std::string image = applicationImage("new");
    run([&] {
        for (const uint64_t more : {uint64_t{0}, uint64_t{image.size()}}) {
            putFile("/tmp/image", image);
            std::filesystem::resize_file("/tmp/image", 0x100000000 + more);
            EXPECT_EQ(vosFileImageCheckFile(2, "/tmp/image"), VOS_ERROR) << more;
        }
    });
}

TEST(ImageCheckFile, AFileThatDoesNotComeWholeFails) {
    const Attempt attempt = failCall(
        {.call = "read", .shortTo = 20},
        [] {
            putApplication();
            putFile("/tmp/image", applicationImage("application"));
        },
        [] { return vosFileImageCheckFile(2, "/tmp/image"); });
    EXPECT_EQ(attempt.result, VOS_ERROR);
    expectNothingKept({attempt});
}

TEST(ImageCheckFile, EachFailingCall) {
    const auto attempts = failEachCall(
        [] {
            putApplication();
            putFile("/tmp/image", applicationImage("new"));
        },
        [] { return vosFileImageCheckFile(2, "/tmp/image"); });
    expectNothingKept(attempts);
    EXPECT_THAT(attempts, SizeIs(11));
    for (const char *const call : {"stat#1", "malloc#1", "access#1"}) expectLines(attempts, call, VOS_ERROR, {});
    expectLines(attempts, "open#1", VOS_ERROR, {failedLine("vosFileRead:open file /tmp/image")});
    expectLines(attempts, "flock#1", VOS_OK, {failedLine("vosFileRead:lock file /tmp/image")});
    expectLines(attempts, "read#1", VOS_ERROR, {failedLine("vosFileRead:read file /tmp/image")});
    expectLines(attempts, "flock#2", VOS_OK, {failedLine("vosFileRead:unlock file /tmp/image")});
    expectLines(attempts, "close#1", VOS_OK, {});
    expectLines(attempts, "open#2", VOS_ERROR, {failedLine("vosFileImageCheck:open app file")});
    expectLines(attempts, "read#2", VOS_ERROR, {failedLine("vosFileImageCheck:read app file")});
    expectLines(attempts, "close#2", VOS_OK, {});
}
