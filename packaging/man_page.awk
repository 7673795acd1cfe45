# Turns a help text into a manual page. Takes the page's name, the version, and the name of the page above.
#
# The first line says what the command is for. "Usage:", "Positionals:", "Options:", "Subcommands:", "Examples:" and
# "Exit status:" begin a section; all else is the description. Indented lines are examples, or entries of a list if two
# or more blanks separate a term from its description.

function escape(text) {
  gsub(/\\/, "\\e", text)
  gsub(/'/, "\\(aq", text)
  gsub(/"/, "\\(dq", text)
  gsub(/`/, "\\(ga", text)
  gsub(/\^/, "\\(ha", text)
  gsub(/~/, "\\(ti", text)
  return text
}

# Text that can be copied to a shell: a plain hyphen would be printed as a typographic one.
function literal(text) {
  text = escape(text)
  gsub(/-/, "\\-", text)
  return text
}

function bold(text) { return "\\fB" literal(text) "\\fR" }

function prose(text,    words, count, i) {
  count = split(text, words, " ")
  text = ""
  for (i = 1; i <= count; ++i)
    text = text (i > 1 ? " " : "") (words[i] ~ /^["'(]*-/ ? literal(words[i]) : escape(words[i]))
  return text ~ /^\./ ? "\\&" text : text
}

function put(line) { page[section] = page[section] line "\n" }

function leave() {
  if (mode == "examples") put(".EE\n.RE")
  mode = ""
}

# Returns where the description of a list entry begins in its line; 0 if it has none.
function told(line) { return match(line, /[^ ]  +[^ ]/) ? RSTART + RLENGTH - 1 : 0 }

function term(line) {
  if (told(line)) line = substr(line, 1, told(line) - 1)
  gsub(/^ +| +$/, "", line)
  sub(/ REQUIRED$/, "", line)
  return line
}

function entry(line) {
  put(".TP\n" bold(term(line)))
  if (told(line)) put(prose(substr(line, told(line))))
  mode = "list"
}

NR == 1 {
  section = "DESCRIPTION"
  if (match($0, /\. /)) put(prose(substr($0, RSTART + 2)))
  sub(/\.( .*)?$/, "")
  purpose = prose(tolower(substr($0, 1, 1)) substr($0, 2))
  next
}

/^Usage: / {
  usage = bold(substr($0, 8)) "\n"
  next
}

/^(Positionals|Options|Subcommands):$/ {
  section = $0 == "Positionals:" ? "ARGUMENTS" : $0 == "Options:" ? "OPTIONS" : "COMMANDS"
  mode = "arguments"
  next
}

/^$/ {
  leave()
  blank = 1
  next
}

mode == "arguments" || mode == "list" {
  if (/^     /) {
    put(prose($0))
    next
  }
  if (/^ /) {
    entry($0)
    calls = calls ".br\n" bold(term($0)) "\n"
    if (section == "COMMANDS") below = below ",\n.BR " literal(name "-" term($0)) " (1)"
    next
  }
  put(".PP")
}

/^[^ ]/ {
  leave()
  if (/^Examples?:$/) {
    section = "EXAMPLES"
    next
  }
  if (/^Exit status: /) section = "EXIT STATUS"
  else if (blank) {
    section = "DESCRIPTION"
    if (section in page) put(".PP")
  }
  sub(/^Exit status: /, "")
  blank = 0
  put(prose($0))
  next
}

# A program without a usage line has a list of its calls instead.
told($0) {
  leave()
  entry($0)
  calls = calls (calls == "" ? "" : ".br\n") bold(term($0)) "\n"
  next
}

{
  if (mode != "examples") put(".RS 4\n.EX")
  mode = "examples"
  put(literal(substr($0, 3)))
}

END {
  leave()
  printf ".TH %s 1 \"\" \"KESTOR %s\" KESTOR\n", literal(toupper(name)), version
  printf ".SH NAME\n%s \\- %s\n.SH SYNOPSIS\n%s", literal(name), purpose, usage == "" ? calls : usage
  count = split("DESCRIPTION,ARGUMENTS,OPTIONS,COMMANDS,EXAMPLES,EXIT STATUS", order, ",")
  for (i = 1; i <= count; ++i) if (order[i] in page) printf ".SH %s\n%s", order[i], page[order[i]]
  printf ".SH SEE ALSO\n.BR %s (1)%s\n", literal(above), below
}
