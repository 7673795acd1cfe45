#include <gtest/gtest.h>

#include "contract/interfaces.h"
#include "server/fabrica_classe.h"

namespace {

struct Asked {
  IUnknown* outer = nullptr;
  IID iid{};
  int times = 0;
};
Asked asked;

HRESULT Record(kestor::CModuloServidor&, IUnknown* outer, REFIID iid, void** object) {
  asked = {outer, iid, asked.times + 1};
  EXPECT_EQ(*object, nullptr);
  return S_FALSE;
}

TEST(ClassObject, ChecksBeforeTheClassIsAsked) {
  asked = {};
  kestor::CModuloServidor module({});
  ComPtr<IClassFactory> factory;
  ASSERT_EQ(kestor::CFabricaClasse::Cria(module, Record, factory.Out()), S_OK);

  EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
  void* object = &module;
  EXPECT_EQ(factory->CreateInstance(factory.Get(), IID_IZNPL_Rel, &object), CLASS_E_NOAGGREGATION);
  EXPECT_EQ(object, nullptr);
  EXPECT_EQ(asked.times, 0);

  object = &module;
  EXPECT_EQ(factory->CreateInstance(factory.Get(), IID_IUnknown, &object), S_FALSE);
  EXPECT_EQ(asked.outer, factory.Get());
  EXPECT_EQ(factory->CreateInstance(nullptr, IID_IZNPL_Rel, &object), S_FALSE);
  EXPECT_TRUE(asked.iid == IID_IZNPL_Rel);
  EXPECT_EQ(asked.times, 2);

  ComPtr<IUnknown> identity;
  EXPECT_EQ(factory->QueryInterface(IID_IUnknown, identity.OutVoid()), S_OK);
  EXPECT_EQ(factory->QueryInterface(IID_IClassFactory, identity.OutVoid()), S_OK);
  EXPECT_EQ(factory->QueryInterface(IID_IZNPL_Rel, identity.OutVoid()), E_NOINTERFACE);
  EXPECT_EQ(identity.Get(), nullptr);
  EXPECT_EQ(factory->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
}

}  // namespace
