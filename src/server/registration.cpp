#include "registration.h"

#include "contract/interfaces.h"
#include "platform/text/text.h"
#include "registry_script.h"

namespace kestor {

namespace {

constexpr char kApplicationScript[] = R"(
HKCR
{
  NoRemove AppID
  {
    '%APPID%' = s 'KESTOR'
    'KESTOR.EXE'
    {
      val 'AppID' = s '%APPID%'
    }
  }
}
)";

constexpr char kClassScript[] = R"(
HKCR
{
  'KESTOR.%CLASS%.1' = s '%DESCRIPTION%'
  {
    CLSID = s '%CLSID%'
  }
  'KESTOR.%CLASS%' = s '%DESCRIPTION%'
  {
    CLSID = s '%CLSID%'
    CurVer = s 'KESTOR.%CLASS%.1'
  }
  NoRemove CLSID
  {
    ForceRemove '%CLSID%' = s '%DESCRIPTION%'
    {
      ProgID = s 'KESTOR.%CLASS%.1'
      VersionIndependentProgID = s 'KESTOR.%CLASS%'
      LocalServer32 = s '%MODULE%'
      val AppID = s '%APPID%'
      TypeLib = s '%LIBID%'
    }
  }
}
)";

// A script that the executable carries. Those of the classes differ only in the class.
struct Script {
  const char* text;
  const char* className;
  const char* description;
  CLSID clsid;
};

// In the order in which they are applied: 100, the application's, then 101 to 103, those of the classes.
constexpr Script kApplication = {kApplicationScript, "", "", {}};
constexpr Script kClasses[] = {
    {kClassScript, "ZNPL_Rel", "ZNPL_Rel Class", CLSID_ZNPL_Rel},
    {kClassScript, "ZNPL_Relatorio2", "ZNPL_Relatorio2 Class", CLSID_ZNPL_Relatorio2},
    {kClassScript, "ZNPL_RelConverte", "ZNPL_RelConverte Class", CLSID_ZNPL_RelConverte},
};

// Applies a script in one direction. `module`: the executable's path in code page 1252.
HRESULT Apply(const Script& source, const std::string& module, HRESULT (RegistryScript::*direction)() const) {
  RegistryScript script;
  const HRESULT result = RegistryScript::Parse(source.text,
                                               {{"APPID", GuidText(APPID_KESTOR)},
                                                {"LIBID", GuidText(LIBID_KESTORLib)},
                                                {"CLSID", GuidText(source.clsid)},
                                                {"CLASS", source.className},
                                                {"DESCRIPTION", source.description},
                                                {"MODULE", module}},
                                               &script);
  return FAILED(result) ? result : (script.*direction)();
}

// The folder of a path, without a separator at its end unless it is the root.
std::string FolderOf(const std::string& path) {
  const std::size_t separator = path.rfind('/');
  if (separator == std::string::npos) return {};
  return path.substr(0, separator == 0 ? 1 : separator);
}

// The executable's path with the extension of a type library. Only a dot in the file name starts an extension: the one
// of a folder such as kestor-1.0 would lead out of the executable's folder.
std::string LibraryFileBeside(const std::string& executable) {
  const std::size_t separator = executable.rfind('/');
  const std::size_t dot = executable.rfind('.');
  const bool hasExtension = dot != std::string::npos && (separator == std::string::npos || dot > separator);
  return executable.substr(0, hasExtension ? dot : executable.size()) + ".tlb";
}

// Loads the server's type library and tells where it was found.
HRESULT LoadServerTypeLibrary(const std::string& executable, ITypeLib** library, std::string* path) {
  *path = executable;
  const HRESULT result = LoadTypeLib(text::Utf8ToUtf16(*path).c_str(), library);
  if (SUCCEEDED(result)) return result;
  *path = LibraryFileBeside(executable);
  return LoadTypeLib(text::Utf8ToUtf16(*path).c_str(), library);
}

HRESULT RegisterLibrary(const std::string& executable) {
  ComPtr<ITypeLib> library;
  std::string path;
  const HRESULT result = LoadServerTypeLibrary(executable, library.Out(), &path);
  if (FAILED(result)) return result;
  return RegisterTypeLib(library.Get(), text::Utf8ToUtf16(path).c_str(),
                         text::Utf8ToUtf16(FolderOf(executable)).c_str());
}

HRESULT UnregisterLibrary(const std::string& executable) {
  ComPtr<ITypeLib> library;
  std::string path;
  HRESULT result = LoadServerTypeLibrary(executable, library.Out(), &path);
  if (FAILED(result)) return result;
  TLIBATTR* attributes = nullptr;
  result = library->GetLibAttr(&attributes);
  if (FAILED(result)) return result;
  result = UnRegisterTypeLib(attributes->guid, attributes->wMajorVerNum, attributes->wMinorVerNum, attributes->lcid,
                             attributes->syskind);
  library->ReleaseTLibAttr(attributes);
  return result;
}

}  // namespace

HRESULT RegistraServidor(const std::string& executable) {
  std::string module;
  const bool representable = text::FromUtf8Exactly(executable, &module);
  Apply(kApplication, module, &RegistryScript::Add);
  if (!representable) return HRESULT_FROM_WIN32(ERROR_INVALID_NAME);
  for (const Script& script : kClasses) {
    const HRESULT result = Apply(script, module, &RegistryScript::Add);
    if (FAILED(result)) return result;
  }
  return RegisterLibrary(executable);
}

HRESULT DesregistraServidor(const std::string& executable) {
  const std::string module = text::FromUtf8(executable);
  Apply(kApplication, module, &RegistryScript::Remove);
  for (const Script& script : kClasses)
    Apply(script, module, &RegistryScript::Remove);
  UnregisterLibrary(executable);
  return S_OK;
}

}  // namespace kestor
