# Doxygen's filter of the header: the indented lines below a line that ends with a colon are a table, whose layout is kept.
{ indented = $0 ~ /^ \*  +[^ ]/ }
in_table && !indented {
    print "@endverbatim"
    in_table = after_colon = 0
}
after_colon && !in_table && indented {
    print " * @verbatim"
    in_table = 1
}
!in_table && $0 != " *" { after_colon = $0 ~ /^ \* .*:$/ }
in_table { sub(/^ \*/, "") }
{ print }
