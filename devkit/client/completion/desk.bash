# Completion of desk in bash. In the checkout:  . devkit/client/completion/desk.bash
# The program itself knows what fits; DESK_PROGRAM names another than that of the checkout.
: "${DESK_PROGRAM:=$(cd "${BASH_SOURCE[0]%/*}/../../.." && pwd)/build/release/devkit/client/desk}"

_desk() {
  mapfile -t COMPREPLY < <("$DESK_PROGRAM" complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
}
complete -o default -F _desk desk  # nothing that fits: files
