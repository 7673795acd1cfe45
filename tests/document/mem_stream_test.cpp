#include "document/mem_stream.h"

#include <gtest/gtest.h>
#include <string>

namespace {

using kestor::CMemStream;

std::string ReadSome(CMemStream& stream, ULONG wanted) {
  std::string bytes(wanted, '?');
  ULONG read = 7;
  EXPECT_EQ(stream.Read(bytes.data(), wanted, &read), S_OK);
  return bytes.substr(0, read);
}

TEST(MemStream, ReadingAndWritingHavePlacesOfTheirOwn) {
  CMemStream stream("abcd", 4);
  EXPECT_EQ(ReadSome(stream, 3), "abc");
  ULONG written = 7;
  EXPECT_EQ(stream.Write("xyz", 3, &written), S_OK);
  EXPECT_EQ(written, 3U);
  ULONGLONG place = 7;
  EXPECT_EQ(stream.Seek(0, 0, &place), E_NOTIMPL);
  EXPECT_EQ(place, 7U);
  EXPECT_EQ(ReadSome(stream, 100), "dxyz");
  EXPECT_EQ(ReadSome(stream, 100), "");
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(stream.Buffer()), stream.Size()), "abcdxyz");
}

TEST(MemStream, RoomGrowsInSteps) {
  CMemStream stream;
  const std::string bytes(5000, 'x');
  const std::pair<ULONG, ULONG> cases[] = {{1023, 1024}, {1, 1024}, {1, 2048}, {0, 2048}, {5000, 6144}};
  for (const auto& [count, capacity] : cases) {
    EXPECT_EQ(stream.Write(bytes.data(), count, nullptr), S_OK);
    EXPECT_EQ(stream.Capacity(), capacity);
  }
  ULONG written = 1;
  EXPECT_EQ(stream.Write(bytes.data(), 0xFFFFFFFF, &written), E_OUTOFMEMORY);
  EXPECT_EQ(written, 0U);
  STATSTG status;
  std::memset(&status, 0xFF, sizeof status);
  EXPECT_EQ(stream.Stat(&status, 0), S_OK);
  EXPECT_EQ(status.type, STGTY_STREAM);
  EXPECT_EQ(status.cbSize, 6025U);
  EXPECT_EQ(status.pwcsName, nullptr);
  EXPECT_EQ(status.grfMode, 0U);
}

TEST(MemStream, IsItsOwnInterfaceWithoutCounting) {
  CMemStream stream;
  void* object = &object;
  EXPECT_EQ(stream.QueryInterface(IID_ISequentialStream, &object), E_NOINTERFACE);
  EXPECT_EQ(object, nullptr);
  for (const IID& iid : {IID_IUnknown, IID_IStream}) {
    EXPECT_EQ(stream.QueryInterface(iid, &object), S_OK);
    EXPECT_EQ(object, static_cast<IStream*>(&stream));
  }
  EXPECT_EQ(stream.AddRef() + stream.Release(), 2U);
}

}  // namespace
