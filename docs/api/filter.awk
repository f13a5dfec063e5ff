# The house's headers as Doxygen wants them: a comment that stands on a declaration, or behind one, becomes
# documentation, as it is written; what begins the file describes the file; all of it is in the module `folder`.
# usage: awk -v module=NAME -f filter.awk HEADER

# Text outside of backticks means what it says: nothing in it is a command, a link, a tag or an emphasis.
function plain(text,    parts, count, i, result) {
    count = split(text, parts, "`")
    for (i = 1; i <= count; ++i) {
        if (i % 2)
            gsub(/[\\@<>#%&*]/, "\\\\&", parts[i])
        result = result (i > 1 ? "`" : "") parts[i]
    }
    return result
}

# The held lines as documentation. What stands further in behind an empty line is a table, and keeps its columns.
function document(    i, table) {
    for (i = 1; i <= held; ++i) {
        if (!table && comment[i] ~ /^   / && comment[i - 1] == "") {
            print "/// @verbatim"
            table = 1
        } else if (table && comment[i] !~ /^   |^$/) {
            print "/// @endverbatim"
            table = 0
        }
        print "///" (table ? comment[i] : plain(comment[i]))
    }
    if (table)
        print "/// @endverbatim"
    held = 0
}

# The comment that the file begins with.
NR == 1 { print "/// @file"; first = 1 }
first && !/^\/\// { first = 0; document(); print "///\n/// @addtogroup " module "\n/// @{" }

# A comment describes something only when no empty line follows it.
/^[ \t]*\/\// {
    sub(/^[ \t]*\/\//, "")
    if (behind) { print "///< " plain($0); next }
    if (!/^ ----/) comment[++held] = $0
    next
}
{ behind = 0 }
/^[ \t]*$/ { for (i = 1; i <= held; ++i) print "//"; held = 0; print; next }
{
    document()
    if (match($0, /[;,{] +\/\/ /) && !/"[^"]*\/\//) {
        print substr($0, 1, RSTART) " ///< " plain(substr($0, RSTART + RLENGTH))
        behind = 1
    } else
        print
}
END { print "/// @}" }
