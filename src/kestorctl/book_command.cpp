// The command book: all reports as pages for a browser.
#include "commands.h"
#include "explanation.h"
#include "failure.h"
#include "marcacao/componente_marcacao.h"
#include "model_options.h"
#ifdef KESTOR_PREVIEW
#include "book.h"
#include "preview/preview.h"
#endif

namespace kestorctl {

namespace {

constexpr const char* kFooter =
    R"(Makes a folder of pages that any browser opens, without a server and without anything from elsewhere: index.html with
all reports and a search; a page for each report, with its first page drawn over sample lines, its columns, conditions,
sort keys and totals; a page for each field that reports use, with the reports that use it; and what "check" finds.

The page of a report also lists its versions, if the home keeps a history.

DIR must not exist, or must be empty. Models of both generations are read from their files: no server takes part, and
nothing is migrated. For a model that cannot be read, standard error gets a line and its page gives the reason.

With --json: "models", how many pages of reports there are.

Examples:
  kestorctl book relatorios-book
  kestorctl book ct CT
  kestorctl book ct01 CT 01

Exit status: 0 made; 3 made, but a model could not be read; 1 failure; 2 wrong usage.)";

struct BookOptions {
  StoreOptions store;
  std::string folder;
};

#ifdef KESTOR_PREVIEW

void MakeBook(const BookOptions& options, Answer& answer) try {
  RequireHome();
  const kestor::ComponenteMarcacao markup;
  const admin::Inventory inventory = admin::TakeInventory(options.store.module, options.store.component);
  WriteBook(options.folder, inventory, answer);
} catch (const admin::Failure& failure) {
  throw LocalFailure(failure.what());
} catch (const preview::Failure& failure) {
  throw LocalFailure(failure.what());
}

#else

void MakeBook(const BookOptions&, Answer&) {
  throw LocalFailure("this kestorctl was built without the libraries that draw pages");
}

#endif

}  // namespace

void AddBook(CLI::App& program, Command* chosen) {
  const auto [command, options] =
      AddCommand(&program, chosen, {"book", "Make pages for a browser of all reports", kFooter}, MakeBook);
  command->add_option("DIR", options->folder, "The folder of the book")->required()->check(CheckUtf8);
  AddStoreOptions(command, &options->store);
  for (const char* code : {"MODULE", "COMPONENT"})
    command->get_option(code)->required(false);
}

}  // namespace kestorctl
