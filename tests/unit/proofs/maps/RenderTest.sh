#!/bin/sh
# RenderTest.sh RENDER.AWK
# Renders small templates and compares standard output, standard error and exit code.
set -u
render=$1
failures=0
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
cd "$directory" || exit

# run TARGET CHIP STEP EVENT WHAT EXIT RUNS: a line of data.
run() { printf '%s\t' "$1" "$2" "$3" "$4" "$5" "$6" && echo "$7"; }
data() {
  run target chip step event "what goes wrong" "exit" runs
  cat
} >data
# renders TEMPLATE OUT [ERR [CODE]]: what comes of the template.
renders() {
  printf '%s' "$1" >template
  awk -f "$render" data template >out 2>err
  code=$?
  if [ "$code" -ne "${4:-0}" ] || [ "$(cat out)" != "$2" ] || [ "$(cat err)" != "${3:-}" ]; then
    printf '%s: failed\n%s\nexit code %s\n' "$name" "$(cat out err)" "$code"
    failures=$((failures + 1))
  fi
}
header='| step | event | what goes wrong | exit | chips | runs |
|---|---|---|---|---|---|'

name=runs_that_are_selected_are_counted
data <<END
$(run dax micron erase SE EIO 3 2)
$(run dax macronix erase SE "EIO from here on" 11 4)
$(run pyx1 micron program PP lost 0 8)
END
renders 'All: {{runs}}.' 'All: 14.'
renders '{{runs where exit = 3}} {{runs where exit = 3|0}} {{runs where exit = 1}}' '2 10 0'
renders '{{runs where exit != 3}} {{runs where exit != 3|0}}' '12 4'
renders '{{runs where what goes wrong ~ EIO}} {{runs where what goes wrong !~ from|lost}}' '6 2'
renders '{{runs where target = dax, exit = 3 or exit = 0}}' '10'

name=each_target_has_a_table
renders 'before
{{tables ###}}
behind' "before
### dax

$header
| erase | SE | EIO | 3 | micron | 2 |
| erase | SE | EIO from here on | 11 | macronix | 4 |

### pyx1

$header
| program | PP | lost | 0 | micron | 8 |
behind"

name=target_without_a_selected_run_has_none
renders '{{tables ## where exit = 0}}' "## dax

None.

## pyx1

$header
| program | PP | lost | 0 | micron | 8 |"

name=runs_that_agree_are_one_row
data <<END
$(run dax micron erase SE EIO 3 1)
$(run dax micron erase SE lost 3 2)
$(run dax macronix erase SE EIO 3 4)
$(run dax macronix erase SE lost 3 8)
END
renders '{{tables ##}}' "## dax

$header
| erase | SE | EIO; lost | 3 | both | 15 |"

name=chips_that_differ_have_rows_of_their_own
data <<END
$(run dax micron erase SE EIO 3 1)
$(run dax macronix erase SE EIO 6 1)
END
renders '{{tables ##}}' "## dax

$header
| erase | SE | EIO | 3 | micron | 1 |
| erase | SE | EIO | 6 | macronix | 1 |"

name=rows_of_one_event_stand_together_and_steps_in_the_order_of_an_update
data <<END
$(run dax micron program PP lost 0 1)
$(run dax micron erase SE EIO 3 1)
$(run dax micron erase RDSR EIO 3 1)
$(run dax micron erase SE lost 0 1)
END
renders '{{tables ##}}' "## dax

$header
| erase | SE | EIO | 3 | micron | 1 |
| erase | SE | lost | 0 | micron | 1 |
| erase | RDSR | EIO | 3 | micron | 1 |
| program | PP | lost | 0 | micron | 1 |"

name=error_is_shown_with_its_place
renders '
{{figures}}' '' "template:2: no place 'figures'" 1
renders '{{runs' '' "template:1: no '}}'" 1
renders '{{runs where exi = 1}}' '' "template:1: no column 'exi'" 1
renders '{{runs where exit=1}}' '' "template:1: not a condition: 'exit=1'" 1
echo "dax" >>data
renders '{{runs}}' '' 'data:6: not a row of a map' 1
data <<END
$(run dax micron polish SE EIO 3 1)
END
renders '{{runs}}' '' "data:2: not a row of a map" 1

[ "$failures" -eq 0 ]
