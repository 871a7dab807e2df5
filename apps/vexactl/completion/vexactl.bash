# shellcheck shell=bash
# Completion of vexactl for bash. The tool itself knows what may stand next.

# Splits what was typed into words as the tool gets them, in `words`; bash itself would take = and : for words, too. What
# bash replaces begins at `start` of the last one, and may stand in an open `quote`.
_vexactl_words()
{
    local line=${COMP_LINE:0:COMP_POINT} word='' char i
    words=() start=0 quote=''
    for ((i = 0; i < ${#line}; i++)); do
        char=${line:i:1}
        case $quote,$char in
            \",\" | \',\') quote='' ;;
            \",\\ | ,\\) i=$((i + 1)) word+=${line:i:1} ;;
            \",* | \',*) word+=$char ;;
            ,[\"\']) quote=$char start=${#word} ;;
            ,[[:space:]]) words+=("$word") word='' start=0 ;;
            ,[=:]) word+=$char start=${#word} ;;
            *) word+=$char ;;
        esac
    done
    words+=("$word")
}

_vexactl()
{
    local words start quote word candidate i kept=()
    _vexactl_words
    for ((i = 1; i < ${#words[@]} - 1; i++)); do
        [ -z "${words[i]}" ] || kept+=("${words[i]}")
    done
    word=${words[-1]}
    COMPREPLY=()
    case ${kept[*]: -1} in
        --devices) mapfile -t COMPREPLY < <(compgen -f -- "$word") && return ;;
        -d | --device) mapfile -t COMPREPLY < <(compgen -A hostname -- "$word") && return ;;
    esac
    while read -r candidate; do
        candidate=${candidate:start}
        [ "$quote" ] || printf -v candidate %q "$candidate"
        COMPREPLY+=("$candidate")
    done < <("${words[0]}" complete -- "${kept[@]}" "$word" 2>/dev/null)
    case " ${kept[*]} " in
        *' save '* | *' diff '* | *' apply '*)
            mapfile -t -O ${#COMPREPLY[@]} COMPREPLY < <(compgen -f -- "$word") ;;
    esac
}
complete -o nosort -F _vexactl vexactl
