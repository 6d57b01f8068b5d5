// The usage screen of mendo: what `-h`, `-?` and every incomplete command
// line print. Apart from the title, home-page and documentation lines, the
// text is fixed, spelling included, because scripts and users know it.

#include "usage.h"

namespace Orlo {

// clang-format off
const char kUsageText[] = R"USAGE(

===============================================================================
      mendo Ver 2.1.7.0424   (c) 2026 the mendo developers, MIT License
      Home page: the README.md of the mendo source tree
===============================================================================
Find string in files or pipe, and replace it to another string

USAGE: mendo [filePattern1 filePattern2 ...] {FindOption:StringToFind}
          {ReplaceOption:StringToReplacement} [OtherOptions]

===============================================================================
FIND OPTIONs:
  -f:      - find
  -fic:    - find ignore case
  -r:      - regular expresion find
  -ric:    - regular expresion find ignore case
  -rnnl:   - regular expresion find ignore newline
  -rnnlic: - regular expresion find ignore newline ignore case

===============================================================================
REPLACE OPTIONs:
  -t:      - change the match to"StringToReplacement"
  -tu:     - make the "StringToReplacement" upper case, and change the match
             to it.
  -tl:     - make the "StringToReplacement" lower case, and change the match
             to it.
  NOTE: If find option you specified is a regular expresion method, the replace
        option will support sub expressions (\0-\9) as well.

===============================================================================
OTHER OPTIONs:
  -h -?    - Is screen
  -s       - include sub folders
  -exp     - enable the memory expand algorithm, will double the memory usage,
             but MUCH quick in many case. Now Default.
  -noexp   - disable the memory expension algorithm, see also: -exp.
  -stdio   - get input from standard input device (keyboard and pipe),
             and put the results to standard output device.
             default when file pattern is omitted.
  -stdout  - get input from file(s) as normally, but put the results to
             standard output device.
  -frc     - show File Replacements Count
  -trc     - show Total Replacements Count
  -errstop - stop on a file or sub-directory access error (the old behave).
             DEFAULT: ignore the access error and try to continue.
  -ue      - apply url encoding (percent-encoding, rfc 3986) for all find and
             replacement options. 'pct-encoded = "%" HEXDIG HEXDIG'

===============================================================================
POSIX and perl style Regular Expression:

  - "mendo" fully support POSIX.2 Extended and Perl style Regular
     Expresion. Here is a list of they character classes:
       POSIX           perl       Description
       --------------------------------------------------------------------
       [:alnum:]                  letters and digits
       [:alpha:]       \a         letters
       [:lower:]       \l         lowercase letters
       [:upper:]       \u         uppercase letters
       [:blank:]                  space and tab characters
       [:space:]       \s         whitespace characters
       [:cntrl:]                  control characters
       [:digit:]       \d         decimal digits
       [:xdigit:]      \x         hexadecimal digits
       [:graph:]                  printable characters excluding space
       [:print:]       \p         printable characters including space
       [:punct:]                  punctuation characters

  - And here a some special char classes in perl:
       perl   POSIX equivalent  Description
       --------------------------------------------------------------------
       \o     [0-7]             octal digit
       \O     [^0-7]            non-octal digit
       \w     [[:alnum:]_]      word character
       \W     [^[:alnum:]_]     non-word character
       \A     [^[:alpha:]]      non-alphabetic character
       \L     [^[:lower:]]      non-lowercase character
       \U     [^[:upper:]]      non-uppercase character
       \S     [^[:space:]]      non-whitespace character
       \D     [^[:digit:]]      non-digit
       \X     [^[:xdigit:]]     non-hex digit
       \P     [^[:print:]]      non-printable characters
       \<     [^[:alpha:]_]     begin of word
       \>     [^[:alnum:]_]     end of word

  - note: posix char class must working in the square brackets. contrary,
          perl's must stay outside of the brackets.

  - And several alias has been created to help input some special char:
       perl style    POSIX style     Description
       -----------------------------------------------------------------------
       \"            [:dq:]          double quotation
       \'            [:sq:]          single quotation
       \t            [:tb:]          table
       \n            [:nl:]          new line (0x0A)
       \r            [:rt:]          return (0x0D)
       \b            [:bs:]          backspace

    NOTE: the posix style alias also available on /t, /tu and /tl when using
          the regex ("/r" and "/ric") match.

===============================================================================
Advanced Regular Expression (ARE) syntax:

  - Use '***:' prefix with -r:, -ric:, -rnnl: or -rnnlic: to enable Advanced
    Regular Expression mode. The ARE mode have more powerful expression then
    POSIX BRE and ERE rule. And it has it's own char classes. More info at:
    docs/regex.md, the regular-expression guide of the mendo source tree

===============================================================================
SWITCH PREFIX and SUFFIX:
  * All switchs (options) are case-insensitive (i.e: "-fic:" or "-FIC:")
  * Switch Prefix can be either "-" or "/" (i.e: "/s" or "-s")
  * Switch Suffix can be either ":" or "=" (i.e: "/f:", "/f=", "-f:" or "-f=")

===============================================================================
EXAMPLEs:
  mendo *.txt *.htm -f:teh -t:the
  mendo *.txt -fic:"My Dir" -tu:"%ROOTDIR%"
  mendo *.cpp *.h -r:"***:(#define.*?)MY_DEF" -t:"\1HER_DEF"
  mendo *.txt -f:"abc%10%1A" -t:"def%00%1F" -ue
  type server.log | mendo /r:"Connected.*218.79" -t:"**Attack** \0"
  type server.log | mendo /r:"^(Smith|James).*\n" -t
  unzip -l *.zip | mendo /r:"^(.{22}:\d\d\s*|(A|  \a| -|.*files$).*\n)" -t
)USAGE";
// clang-format on

}  // namespace Orlo
