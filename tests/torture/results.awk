# What the headers say that each call returns, a line of C++ each: {"call", "header", "0 -1 1105"}.
# Of a @retval line the value counts, of a @return line that there is one ("value"). A call without
# either returns nothing ("").
function told(    name, header) {
    if (statement !~ /VIMBRA_API/ || !match(statement, /[A-Za-z_0-9]+ *\(/)) return
    name = substr(statement, RSTART, RLENGTH - 1)
    gsub(/ /, "", name)
    header = FILENAME
    sub(/.*\//, "", header)
    sub(/^ /, "", results)
    printf "    {\"%s\", \"%s\", \"%s\"},\n", name, header, results
}

FNR == 1 { inComment = 0; results = ""; statement = "" }
/^ *\/\*\*/ { inComment = 1; results = "" }
inComment && /@retval/ {
    value = $3
    if (value == "above") value = ">0"
    results = results " " value
}
inComment && /@return/ { results = results " value" }
/\*\// { if (inComment) { inComment = 0; next } }
inComment { next }
/^VIMBRA_API/ || statement != "" {
    statement = statement $0
    if ($0 ~ /;/) {
        told()
        statement = ""
        results = ""
    }
}
