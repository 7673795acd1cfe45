// The results of the server's interfaces, and names and meanings of every result for people.
#pragma once

#include <string>

#include "contract/records.h"
#include "platform/com/com.h"

namespace kestor {

// A failure: clients see it as one.
constexpr HRESULT ErrorForm(KESTOR_Erros number) {
  return static_cast<HRESULT>(0x80040000u | static_cast<std::uint32_t>(number));
}

// An expected outcome: clients that only test for failure take it as success.
constexpr HRESULT NoticeForm(KESTOR_Erros number) {
  return static_cast<HRESULT>(0x00040000u | static_cast<std::uint32_t>(number));
}

// A number of a shared service (16012 to 16217) as a failure.
constexpr HRESULT ServiceError(std::uint32_t number) {
  return static_cast<HRESULT>(0x80040000u | number);
}

// The name of a result and its meaning in English; UTF-8.
struct ResultText {
  std::string name;     // such as KESTOR_ARQUIVO_JA_EXISTE; never empty
  std::string meaning;  // such as "a model of that name exists"; never empty
};

ResultText Describe(HRESULT result);

// "0x00040004".
std::string ResultCode(HRESULT result);

}  // namespace kestor
