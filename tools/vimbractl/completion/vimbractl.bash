# Completion of vimbractl for bash. What can follow, the command itself knows.
_vimbractl() {
    local words candidate
    # Split at blanks alone: bash would split addresses at their colons, too.
    read -ra words <<<"${COMP_LINE:0:COMP_POINT}"
    [[ ${COMP_LINE:0:COMP_POINT} != *[[:space:]] ]] || words+=("")
    COMPREPLY=()
    while IFS=$'\t' read -r candidate _; do
        COMPREPLY+=("$candidate")
    done < <("${words[0]}" __complete "${words[@]:1}" 2>/dev/null)
}
complete -F _vimbractl vimbractl
