// The file format: the defined example files byte for byte, the table, the word and item
// readers against damaged input.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "core/owners.h"
#include "sysbkp/sysbkp_fixture.h"

namespace kova::test {
namespace {

using SysbkpFormatTest = SysbkpTest;

TEST_F(SysbkpFormatTest, HostnameOnlyFileIsExact) {
    ASSERT_EQ(KOVASysbkpExport(backup().c_str(), KOVA_SYSBKP_HOSTNAME), 0);
    const std::string name = "kovastation";
    const std::string expected = file_header(2) + word(2) + word(2) +
                                 word(8 + static_cast<uint32_t>(name.size()) + 1) +
                                 string_item(name);
    EXPECT_EQ(read_file(backup()), expected);
}

TEST_F(SysbkpFormatTest, LanguageOnlyIsTheHeaderAlone) {
    ASSERT_EQ(KOVASysbkpExport(backup().c_str(), KOVA_SYSBKP_LANG), 0);
    EXPECT_EQ(read_file(backup()), file_header(8));
}

TEST_F(SysbkpFormatTest, AllSectionsInTableOrderWithExactSettingsBodies) {
    ASSERT_EQ(KOVASysbkpExport(backup().c_str(), KOVA_SYSBKP_ALL), 0);
    const std::string file = read_file(backup());
    ASSERT_EQ(file.substr(0, 12), file_header(KOVA_SYSBKP_ALL));
    const std::vector<Block> blocks = blocks_of(file);
    std::vector<uint32_t> ids;
    size_t total = 12;
    for (const Block &b : blocks) {
        ids.push_back(b.id);
        EXPECT_EQ(b.version, 2u);
        total += 12 + b.body.size();
    }
    EXPECT_EQ(total, file.size());  // every size field matches its body
    // The table's order without the language and finishing rows (they write no block); the
    // MySQL switch is there although the mask's own bits lack 0x00800000.
    const std::vector<uint32_t> order = {0x1,      0x2,      0x10,     0x40,    0x80,    0x100,
                                         0x200,    0x20,     0x400,    0x800,   0x2000,  0x8000,
                                         0x100000, 0x20000,  0x40000,  0x80000, 0x10000, 0x200000,
                                         0x400000, 0x800000, 0x1000000};
    EXPECT_EQ(ids, order);
    for (const Block &b : blocks) {
        if (b.id == KOVA_SYSBKP_MYSQL) {
            EXPECT_EQ(b.body, long_item(1) + string_item("runmysql") + string_item("no"));
        }
        if (b.id == KOVA_SYSBKP_MAIL) {
            EXPECT_EQ(b.body, string_item("smtp.example.org") + string_item("admin@example.org") +
                                  string_item("") + long_item(0));
        }
        if (b.id == KOVA_SYSBKP_TIME) {
            // date, ntp on, period, server, backup server, zone, daylight
            EXPECT_EQ(b.body.substr(0, 8), word(1) + word(20));
            EXPECT_EQ(b.body.substr(28), long_item(1) + string_item("daily") +
                                             string_item("pool.ntp.org") +
                                             string_item("time.example.org") +
                                             string_item("Amsterdam") + long_item(1));
        }
    }
}

TEST_F(SysbkpFormatTest, ExportFailureLeavesNoFile) {
    EXPECT_EQ(KOVASysbkpExport(nullptr, KOVA_SYSBKP_ALL), -1);
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
    // No host name to save: the exporter fails and the partial file goes.
    write_file(path("/etc/kovainfo.conf"), "language=\"enu\"\n");
    EXPECT_EQ(KOVASysbkpExport(backup().c_str(), KOVA_SYSBKP_HOSTNAME), -1);
    EXPECT_FALSE(file_exists(backup()));
    EXPECT_EQ(KOVASysbkpExport(path("/no/such/dir/file").c_str(), KOVA_SYSBKP_ALL), -1);
    EXPECT_TRUE(raised(ERR_OPEN_FAILED));
}

TEST_F(SysbkpFormatTest, TableRowsAndIndexes) {
    int rows = 0;
    while (grgSysRoutine[rows].dwBit != 0) {
        EXPECT_EQ(grgSysRoutine[rows].dwVersion, 2u);
        EXPECT_EQ(KOVASysbkpIGetIdx(grgSysRoutine[rows].dwBit), rows);
        ++rows;
    }
    EXPECT_EQ(rows, 23);
    EXPECT_EQ(grgSysRoutine[23].pfnExport, nullptr);
    EXPECT_STREQ(grgSysRoutine[8].szDesc, "share_desc");
    EXPECT_STREQ(grgSysRoutine[22].szDesc, "");
    for (uint32_t unused : {0x4u, 0x1000u, 0x4000u, 0x3u, 0u}) {
        EXPECT_EQ(KOVASysbkpIGetIdx(unused), -1) << unused;
    }
}

class ItemFile {
  public:
    explicit ItemFile(const std::string &bytes) {
        std::string name = KOVA_TEST_SANDBOXES "/items-XXXXXX";
        fd_.reset(mkstemp(name.data()));
        unlink(name.c_str());
        EXPECT_EQ(write(fd_.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        lseek(fd_.get(), 0, SEEK_SET);
    }
    int fd() const { return fd_.get(); }

  private:
    UniqueFd fd_;
};

TEST(SysbkpItems, WordsAreBigEndianWholeWords) {
    const ItemFile file(word(0x01020304) + word(0xA0B0C0D0) + "\x01\x02");
    uint32_t words[2] = {};
    EXPECT_EQ(KOVASysbkpRawIntRead(file.fd(), words, 3), -1);  // not a multiple of 4
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
    EXPECT_EQ(KOVASysbkpRawIntRead(file.fd(), words, 0), -1);
    EXPECT_EQ(KOVASysbkpRawIntRead(file.fd(), words, 8), 8);
    EXPECT_EQ(words[0], 0x01020304u);
    EXPECT_EQ(words[1], 0xA0B0C0D0u);
    EXPECT_EQ(KOVASysbkpRawIntRead(file.fd(), words, 4), -1);  // two bytes left: cut short
    EXPECT_EQ(KOVASysbkpRawIntRead(file.fd(), words, 4), 0);   // the end
    EXPECT_EQ(KOVASysbkpRawIntWrite(file.fd(), words, 6), -1);
}

TEST(SysbkpItems, DamagedItemsAreRefused) {
    char *text = nullptr;
    uint32_t value = 0;
    const std::vector<std::string> bad_strings = {
        word(2) + word(4) + word(7),                   // a long where a string belongs
        word(1) + word(0),                             // no room for the NUL
        word(1) + word(4) + std::string("abcd"),       // no NUL at the end
        word(1) + word(4) + std::string("a\0c\0", 4),  // a NUL inside
        word(1) + word(0x7FFFFFFF) + "abc",            // a length far past the body
        word(1) + word(6) + "abc",                     // cut short
    };
    for (const std::string &bytes : bad_strings) {
        const ItemFile file(bytes);
        EXPECT_EQ(KOVASysbkpIReadString(file.fd(), &text), -1);
        EXPECT_EQ(text, nullptr);
    }
    const ItemFile wrong_length(word(2) + word(8) + word(1) + word(2));
    EXPECT_EQ(KOVASysbkpIReadLong(wrong_length.fd(), &value), -1);
    EXPECT_TRUE(raised(ERR_FORMAT_ERROR));

    const ItemFile good(string_item("réseau") + long_item(0xFFFFFFFF));
    ASSERT_EQ(KOVASysbkpIReadString(good.fd(), &text), 0);
    EXPECT_STREQ(text, "réseau");
    free(text);
    ASSERT_EQ(KOVASysbkpIReadLong(good.fd(), &value), 0);
    EXPECT_EQ(value, 0xFFFFFFFFu);
}

TEST(SysbkpItems, BlockSizeIsFilledInAfterTheBody) {
    const ItemFile file("");
    ASSERT_EQ(KOVASysbkpIWriteHeader(file.fd(), KOVA_SYSBKP_MTU), 0);
    const long start = lseek(file.fd(), 0, SEEK_CUR);
    ASSERT_EQ(KOVASysbkpIWriteString(file.fd(), "1500"), 0);
    ASSERT_EQ(KOVASysbkpIWriteLong(file.fd(), 9000), 0);
    const long end = lseek(file.fd(), 0, SEEK_CUR);
    ASSERT_EQ(KOVASysbkpIWriteBlkSize(file.fd(), start, end), 0);
    EXPECT_EQ(lseek(file.fd(), 0, SEEK_CUR), end);
    EXPECT_EQ(KOVASysbkpIWriteBlkSize(file.fd(), end, start), -1);
    std::string bytes(static_cast<size_t>(end), '\0');
    ASSERT_EQ(pread(file.fd(), bytes.data(), bytes.size(), 0), end);
    EXPECT_EQ(bytes, block(KOVA_SYSBKP_MTU, string_item("1500") + long_item(9000)));
}

}  // namespace
}  // namespace kova::test
