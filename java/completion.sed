# What picocli leaves out of the completion that it makes: names may hold blanks, and some options take directories only.
s/^\( *\)COMPREPLY=( \$( compgen -f /\1local IFS=$'\\n'\n&/
/^    --\(home\|output\|plot\))$/,/;;/s/compgen -f \(.*\) # files/compgen -d \1 # directories/
