#!/usr/bin/env bash
# Checks the message catalogue against the code: every key that the tool's
# sources print has an English text in catalogue/lang.po, and every text
# carries exactly the printf conversions that its callers pass (a wrong
# conversion is a crash). Keys are compared as the PO files escape them.
#
#   bash tests/catalogue_test.sh SOURCE_DIR
set -euo pipefail
cd "$1"

# "KEY<tab>TEXT" for each entry of a PO text whose entries are one line each
# (as the catalogue's and xgettext's with --no-wrap are), the header left out.
entries() {
  awk '/^msgid "/ { id = substr($0, 8, length($0) - 8) }
       /^msgstr "/ && id != "" { print id "\t" substr($0, 9, length($0) - 9) }'
}

# The conversions of a print format, a letter each ("d" for d and i).
conversions() {
  grep -o '%[-+ #0]*[0-9.*]*[hlLqjzt]*.' <<<"$1" | grep -v '^%%$' |
    sed 's/.*\(.\)$/\1/; s/i/d/' | tr -d '\n' || true
}

declare -A text
while IFS=$'\t' read -r key value; do text[$key]=$value; done < <(entries < catalogue/lang.po)
mapfile -t sources < <(find app console commands reports -name '*.cc' ! -name '*_test.cc' | sort)

# What the callers pass, then the functions and macros that print with it.
signatures=(
  " GetMessageText PrintText PrintMessageLine TextKey"
  " PrintFormat0 Format0Key"
  "s PrintFormatS FormatSKey"
  "d PrintFormatD FormatDKey"
  "ss PrintFormatSS FormatSSKey"
  "ds PrintFormatDS FormatDSKey"
  "dss PrintFormatDSS"
  "sddd PrintFormatSDDD FormatSDDDKey"
  "ddd PrintFormatDDD FormatTextDDD:3"
)
status=0
printed=0
for signature in "${signatures[@]}"; do
  want=${signature%% *}
  read -ra functions <<<"${signature#* }"
  keywords=("${functions[@]/#/--keyword=}")
  while IFS=$'\t' read -r key _; do
    printed=$((printed + 1))
    if [[ -z ${text[$key]+set} ]]; then
      echo "the catalogue has no text for the key \"$key\""
      status=1
    elif [[ $(conversions "${text[$key]}") != "$want" ]]; then
      echo "the key \"$key\" is printed with \"$want\", its text is \"${text[$key]}\""
      status=1
    fi
  done < <(xgettext --language=C++ --from-code=UTF-8 --no-wrap -k "${keywords[@]}" --omit-header \
             --no-location -o - "${sources[@]}" | entries)
done
# The parsing and the extraction themselves worked.
[[ $(conversions '%-26s: %02d:%02d %% %i %ld') == sdddd ]] || { echo "conversions"; status=1; }
((${#text[@]} > 190 && printed > 30)) || { echo "too few texts or printed keys"; status=1; }
echo "$printed printed keys checked against ${#text[@]} texts"
exit $status
