# Completion of desk in zsh, after compinit. In the checkout:  . devkit/client/completion/desk.zsh
# The program itself knows what fits; DESK_PROGRAM names another than that of the checkout.
: ${DESK_PROGRAM:=${${(%):-%x}:A:h}/../../../build/release/devkit/client/desk}

_desk() {
  local -a candidates
  candidates=(${(f)"$($DESK_PROGRAM complete --notes "${(@)words[2,CURRENT]}" 2>/dev/null)"})
  if (( $#candidates )); then
    _describe desk candidates
  else
    _files
  fi
}
compdef _desk desk
