# The check of the script tests, sourced by them: counts what passed and
# what failed, and names each failure with what was expected. Set
# check_stderr to a file to have its last lines shown with a failure (what
# the tool said on its last run).
failures=0
passes=0
check() {  # check NAME EXPECTED ACTUAL
  if [ "$2" = "$3" ]; then
    passes=$((passes + 1))
  else
    echo "FAIL: $1: expected '$2', got '$3'"
    if [ -n "${check_stderr:-}" ] && [ -s "$check_stderr" ]; then
      sed 's/^/  stderr: /' "$check_stderr" | tail -n 20
    fi
    failures=$((failures + 1))
  fi
}
