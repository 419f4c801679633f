#include "formats/kit_changes.h"

#include <gtest/gtest.h>

namespace {

TEST(KitChanges, ComeBackAsTheyWereAndAreReadToTheirEndOrRefused) {
  const TKitChanges Changes{TFolderMade{"C:\\a, \"b\""},
                            TKeyMade{0x80000001, "Software\\A"},
                            TValueMade{0x80000002, "", "", 3, {0, 0x7F, 0xFF}},
                            TFileMade{"C:\\\xC3\xA4", ".1.part", 2, 1ull << 33, 0xFFFFFFFF},
                            TFileReplaced{"C:\\b", ".1.part", 0, 33, 1, 2, ~0ull, PieceSize + 1},
                            TPieceSaved{{1, 2, 3}},
                            TPieceSaved{}};
  const std::string Text = EncodeKitChanges(Changes);
  EXPECT_EQ("MendworkKit1,folder,\"C:\\a, \"\"b\"\"\",key,2147483649,Software\\A,value,2147483650,,,3,007FFF,",
            Text.substr(0, 88));
  const auto Decoded = DecodeKitChanges(Text);
  ASSERT_TRUE(Decoded);
  EXPECT_EQ(Text, EncodeKitChanges(*Decoded));
  for (size_t Size = 0; Size < Text.size(); ++Size) {
    const auto Cut = DecodeKitChanges(Text.substr(0, Size));
    EXPECT_TRUE(!Cut || Cut->size() < 5) << "its pieces are missing: " << Size;
  }
  for (const char* Bad :
       {"", "MendworkKit1", "MendworkKit2,folder,a", "MendworkKit1,door,a", "MendworkKit1,key,-1,a",
        "MendworkKit1,key,4294967296,a", "MendworkKit1,value,1,a,b,3,0", "MendworkKit1,value,1,a,b,3,0g",
        "MendworkKit1,piece,{1}", "MendworkKit1,piece,{00000000-0000-0000-0000-000000000000}",
        "MendworkKit1,replaced,a,b,0,0,0,0,0,18446744073709551615,replaced,a,b,0,0,0,0,0,1"})
    EXPECT_FALSE(DecodeKitChanges(Bad)) << Bad;
}

}  // namespace
