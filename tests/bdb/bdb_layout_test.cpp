// Byte images of what the record store writes: the packed string list and the reserved 4-byte
// values. Both are in the machine's own word size and order, so these expectations differ on
// i386, s390x and the build host, and each target checks its own.
#include <cstdlib>
#include <string>

#include "bdb/bdb_fixture.h"
#include "kovasdk/list.h"
#include "support/byte_image.h"

namespace kova::test {
namespace {

TEST(BdbRecordLayout, PackedListIsTheBlockWithOffsetsInPlaceOfPointers) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    ASSERT_EQ(KLIBSzListPush(&list, "ab"), 0);
    ASSERT_EQ(KLIBSzListPush(&list, "cd"), 1);
    ASSERT_EQ(KLIBSzListInsert(&list, 3, "e"), 3);  // item 2 is the shared empty byte
    void *packed = KOVAListDBPack(list, list->cbSize);
    ASSERT_NE(packed, nullptr);
    const std::string bytes(static_cast<const char *>(packed), 512);

    // Header of four 32-bit fields and two pointer slots (24 bytes on the appliance), then the
    // item slots; the strings packed down from the block's end: "e\0cd\0ab\0" at 504.
    const size_t slot = sizeof(void *);
    const size_t items_at = 16 + 2 * slot;
    const std::string header = native_bytes(512, 4) + native_bytes(4, 4) +
                               native_bytes(512 - items_at - 4 * slot - 8, 4) + native_bytes(0, 4) +
                               native_slot(504) + native_slot(511);
    const std::string items =
        native_slot(509) + native_slot(506) + native_slot(511) + native_slot(504);
    EXPECT_EQ(bytes.substr(0, items_at), header);
    EXPECT_EQ(bytes.substr(items_at, 4 * slot), items);
    EXPECT_EQ(bytes.substr(504), std::string("e\0cd\0ab\0", 8));
    if (sizeof(void *) == 4) {
        EXPECT_EQ(items_at, 24u);  // the appliance's record: 464 bytes free
        EXPECT_EQ(list->cbFree, 464);
    }

    PKLIBSZLIST back = KOVAListDBUnpack(packed, 512);
    ASSERT_NE(back, nullptr);
    EXPECT_STREQ(SzKLIBSzListGet(back, 3), "e");
    EXPECT_EQ(SzKLIBSzListGet(back, 2), back->pszEmpty);
    KLIBSzListFree(back);
    free(packed);
    KLIBSzListFree(list);
}

using BdbReservedLayout = BdbTest;

TEST_F(BdbReservedLayout, ReservedValuesAreFourBytesInTheMachinesOrder) {
    ASSERT_NE(open_store(), nullptr);
    ASSERT_EQ(KOVABDbConfSyncTimeSet(db_, 0x01020304), 0);
    ASSERT_EQ(KOVABDbDeprecatedSet(db_, 1), 0);
    EXPECT_EQ(get(std::string(KOVA_BDB_KEY_SYNC_TIME, KOVA_BDB_KEY_SYNC_TIME_LEN)),
              native_bytes(0x01020304, 4));
    EXPECT_EQ(get(std::string(KOVA_BDB_KEY_DEPRECATED, KOVA_BDB_KEY_DEPRECATED_LEN)),
              native_bytes(1, 4));
}

}  // namespace
}  // namespace kova::test
