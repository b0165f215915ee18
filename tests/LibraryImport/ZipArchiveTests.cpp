#include "LibraryImport/ZipArchive.h"
#include "ZipFixture.h"

#include <functional>
#include <gtest/gtest.h>

namespace marlune {
namespace {

using testing::buildZip;
using testing::file;
using testing::FixtureEntry;
using testing::FixtureZip;
using testing::patch16;
using testing::patch32;
using testing::storedFile;

std::string text(const std::vector<std::uint8_t>& bytes) {
    return {bytes.begin(), bytes.end()};
}

std::string openFailure(const std::vector<std::uint8_t>& bytes) {
    auto opened = ZipArchive::open(bytes);
    if (auto* error = std::get_if<ZipError>(&opened)) {
        return error->reason;
    }
    return "(opened)";
}

std::string readFailure(const std::vector<std::uint8_t>& bytes, std::string_view name) {
    auto opened = ZipArchive::open(bytes);
    if (auto* error = std::get_if<ZipError>(&opened)) {
        return "open: " + error->reason;
    }
    auto read = std::get<ZipArchive>(opened).read(name);
    if (auto* error = std::get_if<ZipError>(&read)) {
        return error->reason;
    }
    return "(read)";
}

const std::string kBody = "Snippet library\n" + std::string(3000, 'x') + "\nend";

TEST(ZipArchive, EveryWriterLayoutReadsBackTheSameFiles) {
    struct Case {
        const char* layout;
        bool zip64;
        bool dataDescriptor;
        bool zip64End;
        std::string comment;
    };
    const Case cases[] = {
        {"plain", false, false, false, ""},
        {"trailing comment that holds a fake end signature", false, false, false,
         "PK\x05\x06 not really the end"},
        {"streaming writer with data descriptors", false, true, false, ""},
        {"ZIP64 fields and end records on small files", true, false, true, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.layout);
        std::vector<FixtureEntry> entries = {
            storedFile("Snippets/"),
            file("Snippets/info.plist", kBody),
            storedFile("Snippets/raw.json", "{\"a\": 1}"),
            file("Snippets/empty.txt"),
        };
        for (auto& entry : entries) {
            entry.zip64 = c.zip64;
            entry.dataDescriptor = c.dataDescriptor;
        }
        const auto zip = buildZip(entries, c.zip64End, c.comment);
        auto opened = ZipArchive::open(zip.bytes);
        ASSERT_TRUE(std::holds_alternative<ZipArchive>(opened))
            << std::get<ZipError>(opened).reason;
        const auto& archive = std::get<ZipArchive>(opened);
        ASSERT_EQ(archive.entries().size(), entries.size());
        for (std::size_t i = 0; i < entries.size(); ++i) {
            const auto& listed = archive.entries()[i];
            EXPECT_EQ(listed.name, entries[i].name);
            EXPECT_EQ(listed.method, entries[i].method);
            EXPECT_EQ(listed.uncompressedSize, entries[i].content.size());
            auto read = archive.read(listed);
            ASSERT_TRUE(std::holds_alternative<std::vector<std::uint8_t>>(read))
                << std::get<ZipError>(read).reason;
            EXPECT_EQ(text(std::get<std::vector<std::uint8_t>>(read)), entries[i].content);
        }
        EXPECT_TRUE(archive.entries()[0].isDirectory());
        EXPECT_EQ(archive.find("Snippets/raw.json"), &archive.entries()[2]);
        EXPECT_EQ(archive.find("raw.json"), nullptr);
    }
}

TEST(ZipArchive, MalformedArchivesAreRefusedWithTheirReason) {
    const std::vector<FixtureEntry> pair = {file("a.txt", kBody), storedFile("b.txt", "bee")};
    const auto base = buildZip(pair);
    using Mutate = std::function<void(FixtureZip&)>;
    struct Case {
        const char* fault;
        Mutate mutate;
        std::string reason;
    };
    const std::string damagedHeader =
        "the archive is damaged (a file's header disagrees with the index)";
    const Case cases[] = {
        {"no bytes at all", [](FixtureZip& z) { z.bytes.clear(); }, "it isn't a ZIP archive."},
        {"plain text", [](FixtureZip& z) { z.bytes.assign(200, 'a'); }, "it isn't a ZIP archive."},
        {"cut inside the end record", [](FixtureZip& z) { z.bytes.resize(z.bytes.size() - 1); },
         "it isn't a ZIP archive."},
        {"cut in the middle", [](FixtureZip& z) { z.bytes.resize(z.bytes.size() / 2); },
         "it isn't a ZIP archive."},
        {"second disk of a split archive",
         [](FixtureZip& z) { patch16(z.bytes, z.endOffset + 4, 1); },
         "multi-part archives aren't supported."},
        {"fewer entries on this disk than in total",
         [](FixtureZip& z) { patch16(z.bytes, z.endOffset + 8, 1); },
         "multi-part archives aren't supported."},
        {"entry on another disk",
         [](FixtureZip& z) { patch16(z.bytes, z.centralOffsets[1] + 34, 2); },
         "multi-part archives aren't supported."},
        {"index offset beyond the file",
         [](FixtureZip& z) { patch32(z.bytes, z.endOffset + 16, 0x7FFFFFFF); },
         "the file index points past its end"},
        {"index size beyond the end record",
         [](FixtureZip& z) { patch32(z.bytes, z.endOffset + 12, 0xFFFFFFF0); },
         "the file index points past its end"},
        {"local header offset beyond the file",
         [](FixtureZip& z) { patch32(z.bytes, z.centralOffsets[0] + 42, 0xFFFFFF00); },
         "the file index points past its end"},
        {"compressed size running past the file",
         [](FixtureZip& z) {
             patch32(z.bytes, z.centralOffsets[0] + 20, 0x00FFFFFF);
             patch32(z.bytes, z.localOffsets[0] + 18, 0x00FFFFFF);
         },
         "the file index points past its end"},
        {"more entries counted than indexed",
         [](FixtureZip& z) {
             patch16(z.bytes, z.endOffset + 8, 3);
             patch16(z.bytes, z.endOffset + 10, 3);
         },
         "the archive is damaged (the file index is cut short)"},
        {"index entry signature overwritten",
         [](FixtureZip& z) { patch32(z.bytes, z.centralOffsets[1], 0x12345678); },
         "the archive is damaged (a broken entry in the file index)"},
        {"local header offset off by one",
         [](FixtureZip& z) {
             patch32(z.bytes, z.centralOffsets[1] + 42,
                     static_cast<std::uint32_t>(z.localOffsets[1] + 1));
         },
         "the archive is damaged (a file's header is missing)"},
        {"local name differs from the indexed name",
         [](FixtureZip& z) { z.bytes[z.localOffsets[1] + 30] = 'z'; }, damagedHeader},
        {"local checksum differs",
         [](FixtureZip& z) { patch32(z.bytes, z.localOffsets[0] + 14, 1); }, damagedHeader},
        {"local size differs", [](FixtureZip& z) { patch32(z.bytes, z.localOffsets[0] + 22, 5); },
         damagedHeader},
        {"local method differs", [](FixtureZip& z) { patch16(z.bytes, z.localOffsets[1] + 8, 8); },
         damagedHeader},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fault);
        FixtureZip zip = base;
        c.mutate(zip);
        EXPECT_EQ(openFailure(zip.bytes), c.reason);
    }
}

TEST(ZipArchive, FilesThatLieAboutTheirContentAreRefusedWhenRead) {
    auto corrupt = testing::deflateRaw(kBody);
    corrupt[0] = 0x07; // a final block of the reserved type
    auto truncated = testing::deflateRaw(kBody);
    truncated.resize(truncated.size() / 2);
    struct Case {
        const char* fault;
        FixtureEntry entry;
        std::string reason;
    };
    const Case cases[] = {
        {"checksum in both headers wrong", file("f", kBody).withCrc(1),
         "the archive is damaged (“f” fails its checksum)"},
        {"stored file with a wrong checksum", storedFile("f", "bee").withCrc(7),
         "the archive is damaged (“f” fails its checksum)"},
        {"reserved block type in the compressed data", file("f", kBody).withData(corrupt),
         "the archive is damaged (“f” can't be unpacked)"},
        {"compressed data cut short", file("f", kBody).withData(truncated),
         "the archive is damaged (“f” can't be unpacked)"},
        {"declared size smaller than the data", file("f", kBody).declaring(100),
         "the archive is damaged (“f” unpacks to more than its recorded size)"},
        {"declared size larger than the data", file("f", kBody).declaring(kBody.size() + 1),
         "the archive is damaged (“f” unpacks to less than its recorded size)"},
        {"stored file whose sizes differ", storedFile("f", "bee").declaring(2),
         "the archive is damaged (“f” has two different sizes)"},
        {"password-protected file", file("f", kBody).withFlags(1),
         "“f” is protected by a password."},
        {"AES-encrypted file", file("f", "bee").withMethod(99), "“f” is protected by a password."},
        {"bzip2-packed file", file("f", "bee").withMethod(12),
         "“f” is packed in a way Marlune can't unpack."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fault);
        EXPECT_EQ(readFailure(buildZip({c.entry}).bytes, "f"), c.reason);
    }
    EXPECT_EQ(readFailure(buildZip({file("f", "x")}).bytes, "g"), "there's no “g” in it.");
}

TEST(ZipArchive, NamesThatCouldEscapeTheirFolderAreRefused) {
    const std::pair<std::string, bool> cases[] = {
        {"../evil.plist", true},
        {"Snippets/../../evil", true},
        {"Snippets/..", true},
        {"/etc/passwd", true},
        {"..\\evil", true},
        {"Snippets\\..\\..\\evil", true},
        {"\\server\\share", true},
        {"C:\\Windows\\evil", true},
        {std::string("ok.txt\0../evil", 14), true},
        {"..snippets/a", false},
        {"a..b/c...", false},
        {"Snippets/.hidden", false},
    };
    for (const auto& [name, unsafe] : cases) {
        SCOPED_TRACE(name);
        EXPECT_EQ(openFailure(buildZip({file(name, "x")}).bytes),
                  unsafe ? "collection with an unsafe name (a folder path or “..”)." : "(opened)");
    }
}

TEST(ZipArchive, DuplicateAndEmptyNamesAreRefused) {
    EXPECT_EQ(openFailure(buildZip({file("a", "1"), file("a", "2")}).bytes),
              "the archive is damaged (two files named “a”)");
    EXPECT_EQ(openFailure(buildZip({file("", "1")}).bytes),
              "the archive is damaged (a file without a name)");
}

TEST(ZipArchive, BrokenLargeArchiveRecordsAreRefused) {
    auto zip = buildZip({file("f", kBody).asZip64()}, true);
    const std::size_t locator = zip.endOffset - 20;
    const std::size_t record = locator - 56;

    auto missingField = zip;
    patch16(missingField.bytes, missingField.centralOffsets[0] + 46 + 1, 0x9999); // extra id
    EXPECT_EQ(openFailure(missingField.bytes),
              "the archive is damaged (a broken large-archive field)");

    auto recordPastEnd = zip;
    patch32(recordPastEnd.bytes, locator + 8, static_cast<std::uint32_t>(locator));
    EXPECT_EQ(openFailure(recordPastEnd.bytes), "the file index points past its end");

    auto badRecord = zip;
    patch32(badRecord.bytes, record, 0);
    EXPECT_EQ(openFailure(badRecord.bytes),
              "the archive is damaged (a broken large-archive record)");

    auto splitRecord = zip;
    patch32(splitRecord.bytes, locator + 16, 2);
    EXPECT_EQ(openFailure(splitRecord.bytes), "multi-part archives aren't supported.");
}

TEST(ZipArchive, EntryCountLimitIsEnforcedFromTheIndex) {
    std::vector<FixtureEntry> entries;
    for (std::size_t i = 0; i < ZipArchive::kMaxEntries; ++i) {
        entries.push_back(storedFile(std::to_string(i)));
    }
    EXPECT_EQ(openFailure(buildZip(entries).bytes), "(opened)");
    entries.push_back(storedFile("one more"));
    EXPECT_EQ(openFailure(buildZip(entries).bytes), "10001 files — more than Marlune will read.");
}

TEST(ZipArchive, ZipBombsAreRefusedBeforeInflating) {
    // Ten gigabytes of real zeros, in two shapes: one file whose large-archive fields say so,
    // and two hundred honest 50 MiB files that only add up.
    const auto fifty = testing::zeroBombStream(50);
    std::vector<FixtureEntry> many;
    for (int i = 0; i < 200; ++i) {
        many.push_back(file("part" + std::to_string(i)).withData(fifty).declaring(50ULL << 20));
    }
    EXPECT_EQ(openFailure(buildZip(many).bytes), "it unpacks to more than Marlune will read.");

    const auto huge = file("bomb.txt").withData(fifty).declaring(10ULL << 30).asZip64();
    EXPECT_EQ(openFailure(buildZip({huge}, true).bytes), "“bomb.txt” is too large.");

    const auto justOver = file("big.txt").withData(fifty).declaring(ZipArchive::kMaxEntryBytes + 1);
    EXPECT_EQ(openFailure(buildZip({justOver}).bytes), "“big.txt” is too large.");

    // A header that understates the size: inflating stops one byte past what it declared.
    const auto liar = file("small.txt")
                          .withData(testing::zeroBombStream(10240))
                          .declaring(1024)
                          .withCrc(testing::crcOf(std::string(1024, '\0')));
    EXPECT_EQ(readFailure(buildZip({liar}).bytes, "small.txt"),
              "the archive is damaged (“small.txt” unpacks to more than its recorded size)");
}

} // namespace
} // namespace marlune
