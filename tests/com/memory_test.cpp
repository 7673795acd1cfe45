// Task memory, BSTRs, VARIANTs and the texts of identities.
#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "platform/com/com.h"

namespace {

TEST(TaskMemory, ABlockOfNoBytesIsABlock) {
  void* block = CoTaskMemAlloc(0);
  EXPECT_NE(block, nullptr);
  CoTaskMemFree(block);
  CoTaskMemFree(nullptr);
}

TEST(Bstr, HasItsLengthInFrontAndANulBehind) {
  const OLECHAR text[] = u"a\0ção";
  const BSTR copy = SysAllocStringLen(text, 5);
  ASSERT_NE(copy, nullptr);
  std::uint32_t bytes = 0;
  std::memcpy(&bytes, reinterpret_cast<const char*>(copy) - 4, 4);
  EXPECT_EQ(bytes, 10u);
  EXPECT_EQ(std::memcmp(copy, text, sizeof text), 0);
  EXPECT_EQ(SysStringLen(copy), 5u);
  SysFreeString(copy);

  const BSTR upToNul = SysAllocString(text);
  EXPECT_EQ(SysStringLen(upToNul), 1u);
  SysFreeString(upToNul);
}

TEST(Bstr, MayHoldAnOddNumberOfBytes) {
  const BSTR copy = SysAllocStringByteLen("abc", 3);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(SysStringByteLen(copy), 3u);
  EXPECT_EQ(SysStringLen(copy), 1u);
  EXPECT_EQ(std::memcmp(copy, "abc\0\0\0", 6), 0);
  SysFreeString(copy);
}

TEST(Bstr, NullIsEmptyAndComesFromNull) {
  EXPECT_EQ(SysAllocString(nullptr), nullptr);
  EXPECT_EQ(SysStringLen(nullptr), 0u);
  EXPECT_EQ(SysStringByteLen(nullptr), 0u);
  SysFreeString(nullptr);
  const BSTR unset = SysAllocStringLen(nullptr, 2);
  EXPECT_EQ(SysStringLen(unset), 2u);
  EXPECT_EQ(unset[2], u'\0');
  SysFreeString(unset);
}

TEST(Bstr, ALengthThatItCannotTellGivesNull) {
  for (const UINT characters : {0x7FFFFFFDu, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(SysAllocStringLen(nullptr, characters), nullptr) << characters;
  }
  for (const UINT bytes : {0xFFFFFFFAu, 0xFFFFFFFFu})
    EXPECT_EQ(SysAllocStringByteLen(nullptr, bytes), nullptr) << bytes;
}

class CountedUnknown final : public IUnknown {
 public:
  virtual ~CountedUnknown() = default;
  HRESULT QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG AddRef() override { return ++references; }
  ULONG Release() override { return --references; }

  ULONG references = 1;
};

TEST(Variant, ClearingGivesUpWhatItOwns) {
  VARIANT value;
  VariantInit(&value);
  EXPECT_EQ(value.vt, VT_EMPTY);
  EXPECT_EQ(VariantClear(&value), S_OK);

  value.vt = VT_BSTR;
  value.bstrVal = SysAllocString(u"texto");
  EXPECT_EQ(VariantClear(&value), S_OK);
  EXPECT_EQ(value.vt, VT_EMPTY);

  CountedUnknown object;
  value.vt = VT_UNKNOWN;
  value.punkVal = &object;
  EXPECT_EQ(VariantClear(&value), S_OK);
  EXPECT_EQ(object.references, 0u);
  EXPECT_EQ(VariantClear(&value), S_OK);
  EXPECT_EQ(object.references, 0u);

  value.vt = 0x1234;
  EXPECT_EQ(VariantClear(&value), E_INVALIDARG);
}

TEST(Guid, TextComesBackAndNothingElseDoes) {
  const GUID guid = {0x627C07C1, 0x2803, 0x4BE4, {0x99, 0xFD, 0x10, 0x79, 0x6E, 0x46, 0x47, 0x0A}};
  const std::string text = "{627C07C1-2803-4BE4-99FD-10796E46470A}";
  EXPECT_EQ(GuidText(guid), text);
  GUID back{};
  EXPECT_TRUE(GuidFromText(text, &back));
  EXPECT_EQ(back, guid);
  EXPECT_TRUE(GuidFromText("{627c07c1-2803-4be4-99fd-10796e46470a}", &back));
  EXPECT_EQ(back, guid);
  for (std::size_t i = 0; i < text.size(); ++i) {
    EXPECT_FALSE(GuidFromText(std::string(text).replace(i, 1, "g"), &back)) << i;
    EXPECT_FALSE(GuidFromText(std::string(text).erase(i, 1), &back)) << i;
    EXPECT_FALSE(GuidFromText(std::string(text).insert(i, 1, '0'), &back)) << i;
  }
}

}  // namespace
