// The command check: what a person should look at in the reports folder.
#include "admin/admin.h"
#include "admin/check.h"
#include "commands.h"
#include "explanation.h"
#include "failure.h"
#include "marcacao/componente_marcacao.h"
#include "model_options.h"
#include "platform/text/text.h"
#include "progress.h"

namespace kestorctl {

namespace {

constexpr const char* kFooter =
    R"(Reads everything in the reports folder, or what belongs to one module or to one module and component, and prints a line
for each finding with what to do about it:

  files that no program can see, because of the encoding of their names, and names that differ in letter case alone
  documents that cannot be read, or that bear another name than their file
  codes in columns, sort keys, totals and conditions that the field catalogue lacks or does not allow there
  first-generation models that wait to be migrated, or stay, and why
  a default report that is not there, models that are hidden, settings and filters without their model
  permissions that lock users out, truncated record files, leftovers of killed writers

Reads the files itself: no server takes part, and nothing is migrated. Without --fix it changes nothing, except that
listing the folder removes files that killed writers have left and no process holds. --fix makes only changes that
cannot lose data, and reports each: it gives a file that no program can see the name that it was meant to have, if that
is free, and removes what killed writers have left.

With --json: "problems", each with "place", "problem", "remedy" and "mended" (null when nothing was done).

Examples:
  kestorctl check
  kestorctl check CT 01
  kestorctl check --fix

Exit status: 0 nothing is found, or everything is mended; 3 something is left; 1 failure; 2 wrong usage.)";

struct CheckOptions {
  StoreOptions store;
  bool fix = false;
};

void Tell(const admin::Problem& problem, Answer& answer) {
  const bool isMended = !problem.mended.empty();
  answer.output += problem.place + ": " + problem.problem + " (" + (isMended ? problem.mended : problem.remedy) + ")\n";
  answer.data["problems"].push_back({{"place", problem.place},
                                     {"problem", problem.problem},
                                     {"remedy", problem.remedy},
                                     {"mended", isMended ? nlohmann::ordered_json(problem.mended) : nullptr}});
  if (!isMended) answer.incomplete = true;
}

void Check(const CheckOptions& options, Answer& answer) try {
  RequireHome();
  const kestor::ComponenteMarcacao markup;
  answer.data["problems"] = nlohmann::ordered_json::array();
  const admin::Inventory inventory = admin::TakeInventory(options.store.module, options.store.component);
  Progress progress("checking");
  admin::Check(inventory, options.fix,
               {.found = [&](const admin::Problem& problem) { Tell(problem, answer); },
                .progress = [&](std::size_t done, std::size_t total) { progress.Show(done, total); }});
} catch (const admin::Failure& failure) {
  throw LocalFailure(failure.what());
}

}  // namespace

void AddCheck(CLI::App& program, Command* chosen) {
  const auto [command, options] =
      AddCommand(&program, chosen, {"check", "Report what needs attention in the reports folder", kFooter}, Check);
  AddStoreOptions(command, &options->store);
  for (const char* code : {"MODULE", "COMPONENT"})
    command->get_option(code)->required(false);
  command->add_flag("--fix", options->fix, "Make the changes that cannot lose data");
}

}  // namespace kestorctl
