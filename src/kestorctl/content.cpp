#include "content.h"

#include "base64.h"
#include "commands.h"
#include "common/nomes_arquivos.h"
#include "host_files.h"
#include "platform/text/text.h"

namespace kestorctl {

void AddInput(CLI::App* command, std::string* file) {
  command->add_option("FILE", *file, "File with the content; - is standard input")
      ->type_name("")
      ->required()
      ->check(CheckFileName);
}

void AddOutput(CLI::App* command, std::string* file) {
  command->add_option("-o,--output", *file, "Where the content goes; - is standard output")
      ->type_name("FILE")
      ->check(CheckFileName);
}

std::string TakeIn(const std::string& file) {
  return ReadInput(file, kestor::kMaxConteudo);
}

void HandOut(std::string_view content, const std::string& file, Answer& answer, ContentForm form) {
  answer.data["bytes"] = content.size();
  if (file != "-") {
    answer.data["file"] = file;
    WriteOutput(file, content);
  } else if (!answer.json) {
    answer.output = content;
  } else if (form == ContentForm::kText && text::IsValidUtf8(content)) {
    answer.data["content"] = content;
  } else {
    answer.data["contentBase64"] = Base64(content);
  }
}

}  // namespace kestorctl
