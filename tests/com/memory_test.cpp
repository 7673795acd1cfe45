// Task memory, BSTRs, VARIANTs and the texts of identities.
#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "platform/com/com.h"

namespace {

using Text = OwnedBstr;

TEST(Bstr, HasItsLengthInFrontAndANulBehind) {
  const OLECHAR source[] = u"a\0ção";
  const Text copy(SysAllocStringLen(source, 5));
  EXPECT_EQ(std::memcmp(reinterpret_cast<const char*>(copy.get()) - 4, "\x0A\0\0\0", 4), 0);
  EXPECT_EQ(std::memcmp(copy.get(), source, sizeof source), 0);
  EXPECT_EQ(SysStringLen(copy.get()), 5u);
  EXPECT_EQ(SysStringLen(Text(SysAllocString(source)).get()), 1u) << "up to the NUL";
  EXPECT_EQ(Text(SysAllocStringLen(nullptr, 2)).get()[2], u'\0');

  const Text odd(SysAllocStringByteLen("abc", 3));
  EXPECT_EQ(SysStringByteLen(odd.get()), 3u);
  EXPECT_EQ(SysStringLen(odd.get()), 1u);
  EXPECT_EQ(std::memcmp(odd.get(), "abc\0\0\0", 6), 0);
}

// Null stands for an empty text, for a text that cannot be, and for no block.
TEST(Memory, NullIsEverywhereAllowed) {
  EXPECT_EQ(SysAllocString(nullptr), nullptr);
  EXPECT_EQ(SysStringByteLen(nullptr), 0u);
  SysFreeString(nullptr);
  for (const UINT characters : {0x7FFFFFFDu, 0x80000000u, 0xFFFFFFFFu})
    EXPECT_EQ(SysAllocStringLen(nullptr, characters), nullptr) << characters;
  EXPECT_EQ(SysAllocStringByteLen(nullptr, 0xFFFFFFFAu), nullptr);
  CoTaskMemFree(nullptr);
  void* block = CoTaskMemAlloc(0);
  EXPECT_NE(block, nullptr) << "a block of no bytes is a block";
  CoTaskMemFree(block);
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
  EXPECT_EQ(VariantClear(&value), S_OK);
  value.vt = VT_BSTR;
  value.bstrVal = SysAllocString(u"texto");
  EXPECT_EQ(VariantClear(&value), S_OK);
  CountedUnknown object;
  value.vt = VT_UNKNOWN;
  value.punkVal = &object;
  EXPECT_EQ(VariantClear(&value), S_OK);
  EXPECT_EQ(VariantClear(&value), S_OK) << "empty by now";
  EXPECT_EQ(object.references, 0u);
  value.vt = 0x1234;
  EXPECT_EQ(VariantClear(&value), E_INVALIDARG);
}

TEST(Guid, TextComesBackAndNothingElseDoes) {
  const GUID guid = {0x627C07C1, 0x2803, 0x4BE4, {0x99, 0xFD, 0x10, 0x79, 0x6E, 0x46, 0x47, 0x0A}};
  const std::string text = "{627C07C1-2803-4BE4-99FD-10796E46470A}";
  EXPECT_EQ(GuidText(guid), text);
  GUID back{};
  EXPECT_TRUE(GuidFromText("{627c07c1-2803-4BE4-99fd-10796e46470a}", &back));
  EXPECT_EQ(back, guid);
  for (std::size_t i = 0; i < text.size(); ++i) {
    EXPECT_FALSE(GuidFromText(std::string(text).replace(i, 1, "g"), &back)) << i;
    EXPECT_FALSE(GuidFromText(std::string(text).erase(i, 1), &back)) << i;
    EXPECT_FALSE(GuidFromText(std::string(text).insert(i, 1, '0'), &back)) << i;
  }
}

}  // namespace
