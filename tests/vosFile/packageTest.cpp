/* SPDX-License-Identifier: MIT */
#include <sys/mount.h>

#include "vosFile/images.h"
#include "vosSysConfig/partitions.h"

using namespace vostest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

/* Applies a package on a device with an application and returns its lines. */
std::vector<std::string> outcomeOf(const std::string &package, int32_t expected, bool traced = false) {
    putApplication();
    return run([&] {
               umask(0);
               if (traced) vosDebugConfig(VOS_DEBUG_ERROR | VOS_DEBUG_TRACE);
               /* a block of exactly its size, so that the sanitizer finds an access past its end */
               auto *const exact = static_cast<uint8_t *>(malloc(package.size()));
               memcpy(exact, package.data(), package.size());
               EXPECT_EQ(vosFileAppWrite(exact, size32(package)), expected);
               free(exact);
           })
        .messages();
}

std::string onlyEntry(const EntryFields &entry) { return packageOf(1, entryOf(entry)); }

const std::string kFileEntry = entryOf({.name = named("/app/oem1"), .data = "data"});

/* A package whose bytes have been changed, with the CRC made right again. */
std::string sealed(const std::string &package) {
    const std::string payload = package.substr(16);
    return imageHeader(3, payload) + payload;
}

std::string oemBlock() {
    run([] {
        std::string value(1024, '.');
        EXPECT_EQ(vosSysConfigDataGet(BSP_OEM_INFO, value.data(), 1024), VOS_OK);
        putFile("/tmp/block", value);
    });
    return fileContent("/tmp/block");
}

std::string oemPackage(const std::string &records) { return onlyEntry({.kind = 2, .data = records}); }

}  // namespace

TEST(Package, WithZeroEntriesSucceedsAndChangesNothing) {
    EXPECT_THAT(outcomeOf(packageOf(0, ""), VOS_OK), IsEmpty());
    EXPECT_THAT(outcomeOf(packageOf(0, kFileEntry), VOS_OK), IsEmpty());
    EXPECT_FALSE(present("/app/oem1"));
    EXPECT_EQ(fileContent(kApplication), applicationImage("installed"));
}

TEST(Package, ALengthWordOneTooSmallOrTooLarge) {
    for (const uint32_t wrong : {0u, size32(kFileEntry) - 1, size32(kFileEntry) + 1, 0xFFFFFFFFu}) {
        std::string package = packageOf(1, kFileEntry);
        package.replace(20, 4, networkWord(wrong));
        EXPECT_THAT(outcomeOf(sealed(package), VOS_ERR_PACKAGE_LENGTH), IsEmpty());
    }
    EXPECT_FALSE(present("/app/oem1"));
}

TEST(Package, ItsChecksComeBeforeItIsApplied) {
    std::string package = packageOf(1, kFileEntry);
    package.back() ^= 1;
    outcomeOf(package, VOS_ERR_IMAGE_CRC);
    EXPECT_FALSE(present("/app/oem1"));
    const Outcome outcome = run([] {
        std::filesystem::remove(kApplication);
        EXPECT_EQ(installApplication(packageOf(1, kFileEntry)), VOS_ERROR);
    });
    EXPECT_FALSE(present("/app/oem1"));
}

TEST(Package, AnImageOfType3WithoutTheMagicIsNoPackage) {
    std::string package = packageOf(0, "");
    package[16] ^= 1;
    EXPECT_THAT(outcomeOf(sealed(package), VOS_ERR_IMAGE_TYPE), IsEmpty());
}

TEST(Package, ShorterThanItsHeadersFails) {
    const std::string package = packageOf(0, "");
    for (std::size_t length = 20; length < 32; ++length) {
        const std::string cut = sealed(package.substr(0, length));
        EXPECT_THAT(outcomeOf(cut, VOS_ERROR), IsEmpty()) << length;
    }
}

TEST(Package, AddsAFileUnderOemWithThePermissionsOfTheEntry) {
    std::filesystem::create_directory("/app/oem");
    putFile("/app/oem/file", "a longer one, with other permissions");
    chmod("/app/oem/file", 0600);
    EXPECT_THAT(outcomeOf(onlyEntry({.name = named("/app/oem/file"), .data = "content", .mode = 0644}), VOS_OK),
                IsEmpty());
    EXPECT_EQ(fileContent("/app/oem/file"), "content");
    EXPECT_EQ(modeOf("/app/oem/file"), 0644u);
}

TEST(Package, AFileUnderEtcIsNotPermitted) {
    EXPECT_THAT(outcomeOf(onlyEntry({.name = named("/etc/added"), .data = "x"}), VOS_ERROR),
                ElementsAre("vosFileImageFileOp:file /etc/added is not permitted."));
    EXPECT_FALSE(present("/etc/added"));
    EXPECT_THAT(outcomeOf(onlyEntry({.operation = 1, .name = named("/etc/hosts")}), VOS_ERROR), SizeIs(1));
    EXPECT_TRUE(present("/etc/hosts"));
}

TEST(Package, APermittedPathIsAPlainPrefix) {
    std::filesystem::create_directory("/app/oem");
    for (const char *const path : {"/app/oemx", "/app/oem/../climbed", "/app/preZEB.sh", "/app/preZEB.sh.more"}) {
        EXPECT_THAT(outcomeOf(onlyEntry({.name = named(path), .data = "x"}), VOS_OK), IsEmpty());
        EXPECT_EQ(fileContent(path), "x");
    }
    for (const char *const path : {"/app/oe", "/app/preZEB.s", "app/oem", "", "/app/preZEB.sh;/app/oem2x"}) {
        const bool permitted = std::string(path).rfind("/app/preZEB.sh", 0) == 0;
        if (!permitted) {
            EXPECT_THAT(outcomeOf(onlyEntry({.name = named(path), .data = "x"}), VOS_ERROR), SizeIs(1)) << path;
        }
    }
}

TEST(Package, DeletesFilesAndAMissingOneIsFine) {
    putFile("/app/oem1", "x");
    const EntryFields entry{.operation = 1, .name = named("/app/oem1")};
    EXPECT_THAT(outcomeOf(onlyEntry(entry), VOS_OK), IsEmpty());
    EXPECT_FALSE(present("/app/oem1"));
    EXPECT_THAT(outcomeOf(onlyEntry(entry), VOS_OK), IsEmpty());
    std::filesystem::create_directories("/app/oem/sub");
    EXPECT_THAT(outcomeOf(onlyEntry({.operation = 2, .name = named("/app/oem")}), VOS_OK),
                ElementsAre(failedLine("vosFileDelete:remove file /app/oem", ENOTEMPTY)));
}

TEST(Package, AFileThatCannotBeWrittenIsNamedWithTheErrnoOfTheFailedCall) {
    std::filesystem::create_directories("/app/oem/sub");
    EXPECT_THAT(outcomeOf(onlyEntry({.name = named("/app/oem"), .data = "x"}), VOS_ERROR),
                ElementsAre(failedLine("vosFileDelete:remove file /app/oem", ENOTEMPTY),
                            failedLine("vosFileWrite_m:open file /app/oem", EISDIR),
                            failedLine("vosFileImageFileOp:add file /app/oem", EISDIR)));
    const Attempt attempt = failCall(
        {.call = "write", .error = ENOSPC}, [] { putApplication(); },
        [] { return installApplication(packageOf(1, kFileEntry)); });
    EXPECT_EQ(attempt.result, VOS_ERROR);
    EXPECT_EQ(attempt.messages.back(), failedLine("vosFileImageFileOp:add file /app/oem1", ENOSPC));
}

TEST(Package, DirectoriesAreMadeAndOneThatIsThereIsFine) {
    const EntryFields entry{.kind = 1, .name = named("/app/oem"), .mode = 0750};
    EXPECT_THAT(outcomeOf(onlyEntry(entry), VOS_OK), IsEmpty());
    EXPECT_EQ(modeOf("/app/oem"), 0750u);
    EXPECT_THAT(outcomeOf(onlyEntry(entry), VOS_OK), IsEmpty());
}

TEST(Package, DirectoriesAreDeletedWithEverythingInThemAndAMissingOneIsFine) {
    std::filesystem::create_directories("/app/oem/sub");
    putFile("/app/oem/sub/file", "x");
    const EntryFields entry{.operation = 1, .kind = 1, .name = named("/app/oem")};
    EXPECT_THAT(outcomeOf(onlyEntry(entry), VOS_OK), IsEmpty());
    EXPECT_FALSE(present("/app/oem"));
    EXPECT_THAT(outcomeOf(onlyEntry(entry), VOS_OK), IsEmpty());
}

TEST(Package, ModesAreTakenLessTheUmaskAndSetIdBitsAreKept) {
    run([] {
        putApplication();
        umask(027);
        const std::string entries = entryOf({.name = named("/app/oemFile"), .mode = 04777}) +
                                    entryOf({.kind = 1, .name = named("/app/oemDirectory"), .mode = 01777});
        EXPECT_EQ(installApplication(packageOf(2, entries)), VOS_OK);
    });
    EXPECT_EQ(modeOf("/app/oemFile"), modeAfterAWrite(04750));
    EXPECT_EQ(modeOf("/app/oemDirectory"), 01750u);
}

TEST(Package, AReadOnlyFileSystemFailsTheEntry) {
    putApplication();
    const Outcome outcome = run([] {
        ASSERT_EQ(mount(nullptr, "/app", nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0) << strerror(errno);
        EXPECT_EQ(installApplication(packageOf(1, kFileEntry)), VOS_ERROR);
    });
    EXPECT_THAT(outcome.messages(), ElementsAre(failedLine("vosFileDelete:remove file /app/oem1", EROFS),
                                                failedLine("vosFileWrite_m:open file /app/oem1", EROFS),
                                                failedLine("vosFileImageFileOp:add file /app/oem1", EROFS)));
}

TEST(Package, ADirectoryThatIsNotPermittedFailsWithoutALine) {
    EXPECT_THAT(outcomeOf(onlyEntry({.kind = 1, .name = named("/etc/added")}), VOS_ERROR), IsEmpty());
    EXPECT_FALSE(present("/etc/added"));
    EXPECT_THAT(outcomeOf(onlyEntry({.operation = 1, .kind = 1, .name = named("/etc")}), VOS_ERROR), IsEmpty());
    EXPECT_TRUE(present("/etc/hosts"));
}

TEST(Package, ADirectoryThatCannotBeDeletedIsNamed) {
    const std::string package = onlyEntry({.operation = 1, .kind = 1, .name = named("/app/oem")});
    const Attempt attempt = failCall(
        {.call = "rmdir"},
        [] {
            putApplication();
            std::filesystem::create_directories("/app/oem");
        },
        [&] { return installApplication(package); });
    EXPECT_EQ(attempt.result, VOS_ERROR);
    EXPECT_THAT(attempt.messages, ElementsAre(failedLine("vosDirDelete:rmdir dir /app/oem"),
                                              failedLine("vosFileImageFileOp:delete dir /app/oem")));
}

TEST(Package, AFailedMkdirIsIgnored) {
    const std::string package = onlyEntry({.kind = 1, .name = named("/app/oem")});
    const Attempt attempt = failCall(
        {.call = "mkdir"}, [] { putApplication(); }, [&] { return installApplication(package); });
    EXPECT_EQ(attempt.result, VOS_OK);
    EXPECT_THAT(attempt.messages, IsEmpty());
}

TEST(Package, AnUnknownKind) {
    for (const uint32_t kind : {3u, 0xFFFFFFFFu})
        EXPECT_THAT(outcomeOf(onlyEntry({.kind = kind, .name = named("/app/oem")}), VOS_ERR_ENTRY_KIND), IsEmpty());
}

TEST(Package, ANameMustBeThereAndEndWithANul) {
    for (const uint32_t kind : {0u, 1u}) {
        EXPECT_THAT(outcomeOf(onlyEntry({.kind = kind, .name = "", .data = "x"}), VOS_ERROR), IsEmpty());
        EXPECT_THAT(outcomeOf(onlyEntry({.kind = kind, .name = "/app/oem1", .data = "x"}), VOS_ERROR), IsEmpty());
    }
    EXPECT_FALSE(present("/app/oem1"));
}

TEST(Package, AnEntryWithAWrongMagic) {
    std::string entry = kFileEntry;
    entry[0] ^= 1;
    EXPECT_THAT(outcomeOf(packageOf(1, entry), VOS_ERR_PACKAGE_MAGIC), IsEmpty());
}

TEST(Package, AnEntryThatDoesNotFit) {
    for (std::size_t length = 0; length < kFileEntry.size(); ++length)
        EXPECT_THAT(outcomeOf(packageOf(1, kFileEntry.substr(0, length)), VOS_ERROR), IsEmpty()) << length;
    EXPECT_FALSE(present("/app/oem1"));
}

TEST(Package, LengthsThatWrapAreTooLong) {
    for (const uint32_t offset : {12u, 16u}) {
        for (const uint32_t length : {0xFFFFFFFFu, 0xFFFFFFE0u, 0x80000000u, 0xFFFFFFD2u}) {
            std::string entry = kFileEntry;
            entry.replace(offset, 4, networkWord(length));
            EXPECT_THAT(outcomeOf(packageOf(1, entry), VOS_ERROR), IsEmpty());
        }
    }
    std::string both = kFileEntry;
    both.replace(12, 8, networkWord(0x80000000) + networkWord(0x80000000));
    EXPECT_THAT(outcomeOf(packageOf(1, both), VOS_ERROR), IsEmpty());
}

TEST(Package, MoreEntriesInTheHeaderThanInThePackage) {
    EXPECT_THAT(outcomeOf(packageOf(0xFFFFFFFF, kFileEntry), VOS_ERROR), IsEmpty());
    EXPECT_EQ(fileContent("/app/oem1"), "data");
}

TEST(Package, WhatIsAppliedBeforeAFailureStays) {
    const std::string second = entryOf({.name = named("/app/oem2"), .data = "two"});
    outcomeOf(packageOf(4, kFileEntry + second + entryOf({.kind = 3}) + entryOf({.name = named("/app/oem3")})),
              VOS_ERR_ENTRY_KIND);
    EXPECT_EQ(fileContent("/app/oem1"), "data");
    EXPECT_EQ(fileContent("/app/oem2"), "two");
    EXPECT_FALSE(present("/app/oem3"));
}

TEST(Package, ANameWithPercentSignsIsShownAsItIs) {
    EXPECT_THAT(outcomeOf(onlyEntry({.name = named("/etc/%n%s")}), VOS_ERROR),
                ElementsAre("vosFileImageFileOp:file /etc/%n%s is not permitted."));
}

TEST(Package, ItsStepsAreTraced) {
    const auto lines = outcomeOf(packageOf(0, ""), VOS_OK, true);
    EXPECT_THAT(lines, ElementsAre("vosFileAppWrite:start ulBufLen 32.", "vosFileImageFileOp:start ulBufLen 32."));
}

TEST(Package, EachFailingCallOfAFileEntry) {
    const auto attempts =
        failEachCall([] { putApplication(); }, [] { return installApplication(packageOf(1, kFileEntry)); });
    expectNothingKept(attempts);
    for (const Attempt &each : attempts) {
        const std::string call = describe(each.point);
        const bool fails =
            call == "open#1" || call == "read#1" || call == "open#2" || call == "ftruncate#1" || call == "write#1";
        EXPECT_EQ(each.result, fails ? VOS_ERROR : VOS_OK) << call;
    }
}

TEST(OemRecords, FillTheirFieldsAndMarkTheBlock) {
    putErased();
    EXPECT_THAT(outcomeOf(oemPackage(oemRecord(0, "vendor") + oemRecord(8, "last") + oemRecord(1, "")), VOS_OK),
                IsEmpty());
    std::string expected(1024, '\xFF');
    expected.replace(0, 8, "devinfo\0", 8);
    expected.replace(16, 7, "vendor\0", 7);
    expected.replace(656, 5, "last\0", 5);
    EXPECT_EQ(oemBlock(), expected);
    run([] {
        uint32_t number = 0;
        EXPECT_EQ(getWord(BSP_OEM_NUMBER, number), VOS_OK);
        EXPECT_EQ(number, 1u);
    });
}

TEST(OemRecords, EachFieldHasItsPlaceAndItsSize) {
    const std::pair<uint32_t, uint32_t> fields[] = {{16, 128}, {144, 32},  {176, 32}, {208, 128}, {336, 64},
                                                    {400, 64}, {464, 128}, {592, 64}, {656, 128}};
    uint32_t index = 0;
    for (const auto &[offset, size] : fields) {
        putErased();
        std::string body = erasedBody(kFactory).replace(48, 1024, std::string(1024, '-'));
        putFile(kFactory.path, partitionOf(body));
        outcomeOf(oemPackage(oemRecord(index, "x")), VOS_OK);
        std::string expected(1024, '-');
        expected.replace(0, 8, "devinfo\0", 8);
        expected.replace(offset, size, std::string("x\0", 2) + std::string(size - 2, '\xFF'));
        EXPECT_EQ(oemBlock(), expected) << "field " << index;
        ++index;
    }
}

TEST(OemRecords, AFullFieldIsStoredWithoutANulAndOneByteMoreFailsTheUpdate) {
    putErased();
    outcomeOf(oemPackage(oemRecord(1, std::string(32, 'v'))), VOS_OK);
    EXPECT_EQ(oemBlock().substr(144, 33), std::string(32, 'v') + '\xFF');
    const std::string before = fileContent(kFactory.path);
    EXPECT_THAT(outcomeOf(oemPackage(oemRecord(0, "new") + oemRecord(1, std::string(33, 'v'))), VOS_ERROR),
                ElementsAre("vosFileImageFileOp:oem write failed."));
    EXPECT_EQ(fileContent(kFactory.path), before);
}

TEST(OemRecords, AnEmptyValueErasesItsField) {
    putErased();
    outcomeOf(oemPackage(oemRecord(2, "text")), VOS_OK);
    outcomeOf(oemPackage(oemRecord(2, "")), VOS_OK);
    EXPECT_EQ(oemBlock().substr(176, 32), std::string(32, '\xFF'));
}

TEST(OemRecords, NineAreTakenAndTenAreNot) {
    putErased();
    std::string records;
    for (int i = 0; i < 9; ++i) records += oemRecord(0, std::to_string(i));
    outcomeOf(oemPackage(records), VOS_OK);
    EXPECT_EQ(oemBlock().substr(16, 2), std::string("8\0", 2));
    outcomeOf(oemPackage(records + oemRecord(0, "ten")), VOS_ERROR);
    EXPECT_EQ(oemBlock().substr(16, 2), std::string("8\0", 2));
}

TEST(OemRecords, UnsoundOnesChangeNothing) {
    putErased();
    std::string wrongMagic = oemRecord(0, "x");
    wrongMagic[3] ^= 1;
    std::string wrap = oemRecord(0, "x");
    for (const uint32_t length : {2u, 0x7FFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFF4u}) {
        wrap.replace(8, 4, networkWord(length));
        EXPECT_THAT(outcomeOf(oemPackage(wrap), VOS_ERROR), SizeIs(1));
    }
    for (const std::string &records :
         {std::string(), oemRecord(0, "").substr(0, 11), wrongMagic, oemRecord(9, "x"), oemRecord(0xFFFFFFFF, "x"),
          oemRecord(0, "x") + "y", oemRecord(0, "x") + oemRecord(1, "y").substr(0, 11)})
        EXPECT_THAT(outcomeOf(oemPackage(records), VOS_ERROR), ElementsAre("vosFileImageFileOp:oem write failed."));
    EXPECT_EQ(bodyOf(kFactory), erasedBody(kFactory));
}

TEST(OemRecords, TheNameIsNotExamined) {
    putErased();
    EXPECT_THAT(outcomeOf(onlyEntry({.kind = 2, .name = "no path, no NUL", .data = oemRecord(0, "x")}), VOS_OK),
                IsEmpty());
}

TEST(OemRecords, EachFailingCall) {
    const auto attempts = failEachCall(
        [] {
            vosProcessGetName(); /* reads the name from a file, only once */
            putApplication();
            putErased();
        },
        [] { return installApplication(oemPackage(oemRecord(0, "x"))); });
    expectNothingKept(attempts);
    const std::string failed = "vosFileImageFileOp:oem write failed.";
    /* open#1 reads the application; each Get opens the partition once, each Set twice. */
    const auto linesOf = [&](int open, const std::string &function, const std::string &call,
                             const std::vector<std::string> &then) {
        std::vector<std::string> lines{failedLine(function + ":open factory data"), call + ":" + function + " failed.",
                                       call + ":error exit."};
        lines.insert(lines.end(), then.begin(), then.end());
        lines.push_back(failed);
        expectLines(attempts, "open#" + std::to_string(open), VOS_ERROR, lines);
    };
    linesOf(2, "readBootConfigData", "vosSysConfigDataGet",
            {"vosFileImageOemWrite:vosSysConfigDataGet BSP_OEM_INFO failed."});
    /* These two texts begin with a line end, so their header is on a line of its own. */
    for (const int open : {3, 4}) {
        const Attempt &attempt = at(attempts, "open#" + std::to_string(open));
        EXPECT_EQ(attempt.result, VOS_ERROR);
        EXPECT_THAT(attempt.messages,
                    testing::Contains("vosFileImageOemWrite:vosSysConfigDataSet BSP_OEM_INFO failed."));
    }
    for (const int open : {5, 6}) {
        const Attempt &attempt = at(attempts, "open#" + std::to_string(open));
        EXPECT_EQ(attempt.result, VOS_ERROR);
        EXPECT_THAT(attempt.messages,
                    testing::Contains("vosFileImageOemWrite:vosSysConfigDataSet BSP_OEM_NUMBER failed."));
        EXPECT_NE(attempt.outcome.output.find(") \r\nvosFileImageOemWrite:"), std::string::npos);
    }
}
