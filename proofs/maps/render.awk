# awk -f render.awk MAP.tsv MAP.md.in
# Writes the page of a map: its template, with these places filled in from its data.
#   {{runs}}        how many runs there are
#   {{tables ###}}  on a line of its own: a table for each target, below headings of this level
# Both take a selection: "{{runs where exit = 0|11, flash != image or exit = 7}}". "=" asks for one
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

# The cells from one column to another as a part of a Markdown row.
function cells(row, from, to,    text) {
  for (; from <= to; ++from)
    text = text " " cell[row, from] " |"
  return text
}

# What one event suffers with one outcome and the same chips is one row. Rows of one event stand
# together, in the order of the events in an update.
function table(target, selection,    row, key, faults, at, chips, times, f, g, h, s, group, groups,
                                     first, whats, of, sum, text) {
  for (row = 1; row <= rows; ++row) {
    if (cell[row, 1] != target || !selects(selection, row))
      continue
    key = cells(row, 3, columns - 1)
    if (!(key in chips)) {
      at[++faults] = row
      chips[key] = cell[row, 2]
    } else if (chips[key] != cell[row, 2])
      chips[key] = "both"
    times[key] += cell[row, columns]
  }
  if (faults == 0)
    return "None.\n"
  for (f = 1; f <= faults; ++f) {
    row = at[f]
    key = cells(row, 3, columns - 1)
    s = cells(row, 3, 4) cells(row, 6, columns - 1) chips[key]
    if (!(s in group)) {
      group[s] = ++groups
      first[groups] = row
      of[groups] = chips[key]
    }
    g = group[s]
    whats[g] = whats[g] (whats[g] == "" ? "" : "; ") cell[row, 5]
    sum[g] += times[key]
  }
  text = "|" cells(0, 3, columns - 1) " chips | runs |\n|"
  for (f = 3; f <= columns + 1; ++f)
    text = text "---|"
  text = text "\n"
  for (s = 1; s <= steps; ++s)
    for (g = 1; g <= groups; ++g)
      for (h = g; h <= groups; ++h)
        if (sum[h] && cell[first[h], 3] == step[s] && cells(first[g], 3, 4) == cells(first[h], 3, 4)) {
          text = text "|" cells(first[h], 3, 4) " " whats[h] " |" cells(first[h], 6, columns - 1) \
                 " " of[h] " | " sum[h] " |\n"
          sum[h] = 0
        }
  return text
}

function tables(level, selection,    t, text) {
  for (t = 1; t <= targets; ++t)
    text = text (t == 1 ? "" : "\n") level " " target[t] "\n\n" table(target[t], selection)
  return substr(text, 1, length(text) - 1) # "print" ends the last line
}

BEGIN {
  FS = "\t"
  steps = split("all along,discovery,set-up,connect,compare,unlock,erase,program,after the write," \
                "reset,end", step, ",")
  for (s in step)
    isStep[step[s]] = 1
}

NR == 1 {
  columns = NF
  for (i = 1; i <= NF; ++i)
    number[$i] = i
}

NR == FNR {
  if (NF != columns || (NR > 1 && !($3 in isStep)))
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
      filling = tables(substr(what, 8), selection)
    else
      fail("no place '" place "'")
    line = substr(line, 1, start - 1) filling substr(line, end + 2)
  }
  print line
}
