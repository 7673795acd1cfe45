// Replaces a text in a report model, through the client library in C++20.
//
//   replace MODULE COMPONENT NAME OLD NEW
//
// Lists the models, reads one, changes it and writes it back:
//
//   c++ -std=c++20 -o replace replace.cpp $(pkg-config --cflags --libs kestor)
#include <iostream>
#include <kestor.hpp>
#include <string>
#include <vector>

namespace {

// Replaces `old` everywhere and returns how often.
std::size_t Replace(std::string& text, const std::string& old, const std::string& now) {
  std::size_t places = 0;
  for (std::size_t at = 0; !old.empty() && (at = text.find(old, at)) != text.npos; at += now.size()) {
    text.replace(at, old.size(), now);
    ++places;
  }
  return places;
}

}  // namespace

int main(int count, char** arguments) {
  const std::vector<std::string> given(arguments + 1, arguments + count);
  if (given.size() != 5) {
    std::cerr << "usage: replace MODULE COMPONENT NAME OLD NEW\n";
    return 2;
  }
  const std::string& name = given[2];
  try {
    kestor::Reports store(given[0], given[1]);
    for (const std::string& listed : *store.List())
      std::cout << listed << '\n';
    kestor::Content content = *store.Read(name);
    const std::size_t places = Replace(content.bytes, given[3], given[4]);
    if (const auto written = store.Write(name, content); !written) throw kestor::Error(written.Why());
    std::cout << name << ": " << places << " replaced\n";
  } catch (const kestor::Error& error) {
    std::cerr << "replace: " << error.what() << '\n';
    return 1;
  }
}
