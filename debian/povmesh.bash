# Completion for the tool povmesh: its own help says what there is.
_povmesh() {
    local cur prev words cword
    _init_completion || return
    local operation=${words[1]-}
    if [ "$cword" -le 1 ]; then
        COMPREPLY=($(compgen -W "$(povmesh --help | sed -n 's/^  \([a-z]\{1,\}\)  *[A-Z].*/\1/p')" -- "$cur"))
    elif [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "$(povmesh "$operation" --help 2> /dev/null | grep -oE -- '--[a-z][a-z-]*')" -- "$cur"))
    else
        _filedir
    fi
} && complete -F _povmesh povmesh
