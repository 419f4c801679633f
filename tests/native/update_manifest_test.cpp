#include "formats/update_manifest.h"

#include "formats/sha256.h"

#include <gtest/gtest.h>

namespace {

std::string HashOf(const std::string& Bytes) {
  TSha256 Hash;
  for (const char Byte : Bytes) Hash.Append(&Byte, 1);
  return Hash.Finish();
}

TEST(Sha256, IsThatOfTheStandard) {
  EXPECT_EQ("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855", HashOf(""));
  EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad", HashOf("abc"));
  EXPECT_EQ("248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1",
            HashOf("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"));
  EXPECT_EQ("cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0", HashOf(std::string(1000000, 'a')));
}

const std::string Hash(64, 'A');

TEST(UpdateManifest, IsReadToItsEndOrRefusedWithTheLine) {
  const std::string Good =
      "\xEF\xBB\xBF{\n\"name\": \"A \\u00e4\\ud83d\\ude00\\n\", \"source\": \"new/x\", \"target\": \"C:/App\",\n"
      "\"files\": [{\"name\": \"a/b.dll\", \"size\": 5, \"sha256\": \"" +
      Hash +
      "\", \"register\": true}],\n"
      "\"delete\": [\"old.txt\", \"\xC3\xA4\"], \"keys\": [{\"root\": \"HKEY_CURRENT_USER\", \"key\": \"A\"}],\n"
      "\"values\": [{\"root\": \"HKEY_LOCAL_MACHINE\", \"key\": \"A\", \"name\": \"\", \"type\": \"REG_DWORD\", "
      "\"data\": \"7\"}]}\r\n";
  const TUpdateManifest Read = ReadUpdateManifest(Good);
  EXPECT_EQ("A \xC3\xA4\xF0\x9F\x98\x80\n|new\\x|C:\\App", Read.Name + "|" + Read.Source + "|" + Read.Target);
  ASSERT_EQ(1u, Read.Files.size());
  EXPECT_EQ("a\\b.dll" + std::string(64, 'a'), Read.Files[0].Name + Read.Files[0].Sha256);
  EXPECT_TRUE(Read.Files[0].Size == 5 && Read.Files[0].Register);
  EXPECT_EQ((std::vector<std::string>{"old.txt", "\xC3\xA4"}), Read.Delete);
  EXPECT_EQ(0x80000001u, Read.Keys.at(0).Root);
  EXPECT_TRUE(Read.Values.at(0).Type == 4 && Read.Values[0].Data == "7");
  const size_t Whole = Good.size() - 2;
  for (size_t Size = 0; Size < Whole; ++Size)
    EXPECT_THROW(ReadUpdateManifest(Good.substr(0, Size)), EManifestError) << Size;

  const auto Refusal = [](const std::string& Text) {
    try {
      ReadUpdateManifest(Text);
    } catch (const EManifestError& Error) {
      return std::to_string(Error.Line) + " " + Error.Why;
    }
    return std::string("taken");
  };
  EXPECT_EQ("3 \"more\" is unknown", Refusal("{\n\"target\":\"C:\\\\A\",\n\"more\":1}"));
  EXPECT_EQ("1 \"target\" is missing", Refusal("{}"));
  EXPECT_EQ("1 \"A\" is there twice", Refusal("{\"target\":\"C:\\\\A\",\"delete\":[\"a\",\"A\"]}"));
  EXPECT_EQ("1 the file is larger than 16 MB", Refusal(std::string(LargestManifest + 1, ' ')));
  EXPECT_EQ("taken", Refusal("{\"target\":\"C:\\\\A\",\"delete\":[\"console\",\"com\",\"a.con\"]}"));
  for (const char* Bad : {"..",  "a/../b",    "/a",       "C:\\\\a",  "a:b",          "a//b",
                          "a.",  "a ",        "a*",       "NUL",      "sub/com1.txt", "lpt\xC2\xB9",
                          "",    "a\\u0000b", "a\\u0001", "\\ud800",  "\\udc00",      "\\ud800\\u0041",
                          "\\x", "\\u12",     "\xFF",     "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80",
                          "a\nb"})
    EXPECT_NE("taken", Refusal("{\"target\":\"C:\\\\A\",\"delete\":[\"" + std::string(Bad) + "\"]}")) << Bad;
  for (const char* Bad : {"", "A", "\\\\\\\\server\\\\share", "C:A", "C:\\\\", "C:\\\\..\\\\A", "\\\\\\\\?\\\\C:\\\\A"})
    EXPECT_NE("taken", Refusal("{\"target\":\"" + std::string(Bad) + "\"}")) << Bad;
  for (const char* Bad : {"-1", "1.5", "01", "18446744073709551616", "\"1\"", "1e3"})
    EXPECT_NE("taken", Refusal("{\"target\":\"C:\\\\A\",\"files\":[{\"name\":\"a\",\"sha256\":\"" + Hash +
                               "\",\"size\":" + Bad + "}]}"))
        << Bad;
  for (const char* Bad :
       {"{\"target\":\"C:\\\\A\",}", "{\"target\":\"C:\\\\A\"} x", "{\"target\":\"C:\\\\A\",\"target\":\"C:\\\\A\"}",
        "{\"target\":\"C:\\\\A\",\"keys\":[{\"root\":\"HKCU\",\"key\":\"A\"}]}", "[]"})
    EXPECT_NE("taken", Refusal(Bad)) << Bad;
}

}  // namespace
