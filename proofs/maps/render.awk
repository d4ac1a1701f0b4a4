# awk -f render.awk MAP.tsv MAP.md.in
# Writes the page of a map: its template, in which these places are replaced by its data.
#   {{runs}}        how many runs there are
#   {{tables ###}}  on a line of its own: a table for each target, below headings of this level
#   {{reasons ###}} likewise, with one row for each exit code and last line
# All take a selection: "{{runs where exit = 0|11, flash != image or exit = 7}}". "=" asks for one
# of the values, "~" for a part of the cell; "," binds closer than "or".

function fail(problem) {
  print FILENAME ":" FNR ": " problem >"/dev/stderr"
  exit 1
}

function holds(row, condition,    column, operator, values, count, i, found) {
  if (!match(condition, / !?[=~] /))
    fail("not a condition: '" condition "'")
  column = substr(condition, 1, RSTART - 1)
  operator = substr(condition, RSTART + 1, RLENGTH - 2)
  count = split(substr(condition, RSTART + RLENGTH), values, /[|]/)
  if (!(column in number))
    fail("no column '" column "'")
  for (i = 1; i <= count; ++i)
    if (operator ~ /=/ ? cell[row, number[column]] "" == values[i] "" \
                       : index(cell[row, number[column]], values[i]))
      found = 1
  return operator ~ /!/ ? !found : found
}

function selects(selection, row,    ways, way, conditions, count, i, j) {
  if (selection == "")
    return 1
  way = split(selection, ways, " or ")
  for (i = 1; i <= way; ++i) {
    count = split(ways[i], conditions, ", ")
    for (j = 1; j <= count && holds(row, conditions[j]); ++j)
      continue
    if (j > count)
      return 1
  }
  return 0
}

function runs(selection,    row, sum) {
  for (row = 1; row <= rows; ++row)
    if (selects(selection, row))
      sum += cell[row, columns]
  return sum + 0
}

# The cells of a range of columns, as a part of a Markdown row.
function cells(row, from, to,    text) {
  for (; from <= to; ++from)
    text = text " " cell[row, from] " |"
  return text
}

# The runs of a target. The columns behind the chip are shown. Faults of one event with one outcome and the same chips are one row. Rows of
# one event stand together, in the order of the steps of an update.
function table(target, selection,    row, fault, faults, firstRow, chips, times, i, j, s, text,
                                     same, rowOf, count, step, event, what, whats, end, ends, sum) {
  what = number["what goes wrong"]
  for (row = 1; row <= rows; ++row)
    if (cell[row, 1] == target && selects(selection, row)) {
      fault = cells(row, 3, columns - 1)
      if (!(fault in chips)) {
        firstRow[++faults] = row
        chips[fault] = cell[row, 2]
      } else if (chips[fault] != cell[row, 2])
        chips[fault] = "both"
      times[fault] += cell[row, columns]
    }
  if (faults == 0)
    return "None.\n"

  for (i = 1; i <= faults; ++i) {
    row = firstRow[i]
    fault = cells(row, 3, columns - 1)
    end = cells(row, what + 1, columns - 1) " " chips[fault] " |"
    same = cells(row, 3, what - 1) end
    if (!(same in rowOf)) {
      rowOf[same] = ++count
      step[count] = cell[row, number["step"]]
      event[count] = cells(row, 3, what - 1)
      ends[count] = end
    }
    j = rowOf[same]
    whats[j] = whats[j] (whats[j] == "" ? "" : "; ") cell[row, what]
    sum[j] += times[fault]
  }

  text = "|" cells(0, 3, columns - 1) " chips | runs |\n|"
  for (i = 3; i <= columns + 1; ++i)
    text = text "---|"
  text = text "\n"
  for (s = 1; s <= stepCount; ++s)
    for (i = 1; i <= count; ++i)
      for (j = i; j <= count && step[i] == stepNames[s]; ++j)
        if (event[j] == event[i] && sum[j]) {
          text = text "|" event[j] " " whats[j] " |" ends[j] " " sum[j] " |\n"
          sum[j] = 0 # it has its place
        }
  return text
}

# Adds a word to the list of words of a reason, once. The lists are in the array `words`.
function collect(words, reason, column, word) {
  if (!((reason, column, word) in seenWord)) {
    seenWord[reason, column, word] = 1
    words[reason, column] = words[reason, column] (words[reason, column] == "" ? "" : "; ") word
  }
}

# The runs of a target by how they end: what leads there, and where the flash is then.
function reasonTable(target, selection,    row, reason, reasons, rowOf, key, words, sum, i, text) {
  split("", seenWord)
  for (row = 1; row <= rows; ++row)
    if (cell[row, 1] == target && selects(selection, row)) {
      key = cell[row, number["exit"]] " | " cell[row, number["last line"]]
      if (!(key in rowOf)) {
        rowOf[key] = ++reasons
        reason[reasons] = key
      }
      i = rowOf[key]
      collect(words, i, "what", cell[row, number["what goes wrong"]])
      collect(words, i, "step", cell[row, number["step"]])
      collect(words, i, "flash", cell[row, number["flash"]])
      sum[i] += cell[row, columns]
    }
  if (reasons == 0)
    return "None.\n"
  text = "| exit | last line | what goes wrong | in the steps | flash | runs |\n|---|---|---|---|---|---|\n"
  for (i = 1; i <= reasons; ++i)
    text = text "| " reason[i] " | " words[i, "what"] " | " words[i, "step"] " | " words[i, "flash"] " | " \
           sum[i] " |\n"
  return text
}

function tables(level, selection, asReasons,    t, text) {
  for (t = 1; t <= targets; ++t)
    text = text (t == 1 ? "" : "\n") level " " target[t] "\n\n" \
           (asReasons ? reasonTable(target[t], selection) : table(target[t], selection))
  return substr(text, 1, length(text) - 1) # "print" ends the last line
}

BEGIN {
  FS = "\t"
  stepCount = split("all along,discovery,set-up,connect,compare,unlock,erase,program," \
                    "after the write,reset,preflight,own folder,read,mark,new head,tarnwick,read again," \
                    "into use,end", stepNames, ",")
  for (s in stepNames)
    isStep[stepNames[s]] = 1
}

NR == 1 {
  columns = NF
  for (i = 1; i <= NF; ++i)
    number[$i] = i
}

NR == FNR {
  if (NF != columns || (NR > 1 && !($number["step"] in isStep)))
    fail("not a row of a map")
  for (i = 1; i <= NF; ++i)
    cell[NR - 1, i] = $i
  rows = NR - 1
  if (NR > 1 && !isTarget[$1]++)
    target[++targets] = $1
  next
}

{
  line = $0
  while (start = index(line, "{{")) {
    if (!(end = index(line, "}}")))
      fail("no '}}'")
    place = substr(line, start + 2, end - start - 2)
    where = index(place " where ", " where ")
    what = substr(place, 1, where - 1)
    selection = substr(place, where + 7)
    if (what == "runs")
      filling = runs(selection)
    else if (what ~ /^tables #+$/)
      filling = tables(substr(what, 8), selection, 0)
    else if (what ~ /^reasons #+$/)
      filling = tables(substr(what, 9), selection, 1)
    else
      fail("no place '" place "'")
    line = substr(line, 1, start - 1) filling substr(line, end + 2)
  }
  print line
}
