#compdef vimbractl
# Completion of vimbractl for zsh. What can follow, the command itself knows.
local line tab=$'\t'
local -a candidates
for line in ${(f)"$($words[1] __complete "${(@)words[2,CURRENT]}" 2>/dev/null)"}; do
    candidates+=("${${line%%$tab*}//:/\\:}:${line#*$tab}")
done
_describe vimbractl candidates
