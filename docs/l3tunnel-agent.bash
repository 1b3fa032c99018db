# bash completion for l3tunnel-agent

_l3tunnel_agent() {
   local current=$2 word option='' command='' at
   local commands='program show lookup explain audit diff run record monitor mark metrics'
   local globals='--chip-size --hash-seed --trace --unresolved --to-cpu --help --version'
   local tables='EgrL3Oif2= IngL3NextHop2Table= EgrL3NextHop2= L3EcmpMember0Table= L3UnderlayEcmpMember1Table= L3EcmpGroup0Table='
   COMPREPLY=()

   # The shell takes "=" for a word of its own: an option's value may stand behind it.
   for ((at = 1; at < COMP_CWORD; at++)); do
      word=${COMP_WORDS[at]}
      if [[ $word == = ]]; then
         continue
      elif [[ -n $option ]]; then
         option=''
      elif [[ $word == --* ]]; then
         case $word in
            --json | --rows | --help | --version | --running | --delete | --oneshot | --force) ;;
            *) option=$word ;;
         esac
      elif [[ -z $command && " $commands " == *" $word "* ]]; then
         command=$word
      fi
   done
   if [[ $current == = ]]; then
      current=''
   fi

   case $option in
      --unresolved) COMPREPLY=($(compgen -W 'include exclude' -- "$current")) ;;
      --to-cpu) COMPREPLY=($(compgen -W 'punt drop' -- "$current")) ;;
      --trace)
         COMPREPLY=($(compgen -W 'L3UnderlayTunnel/' -- "$current"))
         compopt -o nospace 2>/dev/null
         ;;
      --chip-size)
         COMPREPLY=($(compgen -W "$tables" -- "$current"))
         compopt -o nospace 2>/dev/null
         ;;
      --control)
         local IFS=$'\n'
         COMPREPLY=($(compgen -f -- "$current"))
         compopt -o filenames 2>/dev/null
         ;;
   esac
   if [[ -n $option ]]; then
      return
   fi

   if [[ $current == -* ]]; then
      local options=$globals
      case $command in
         program) options+=' --until --json' ;;
         show) options+=' --until --json --rows --running --control' ;;
         lookup) options+=' --until --flow --spread --running --control' ;;
         explain | audit) options+=' --until --running --control' ;;
         diff) options+=' --from --to --running --control' ;;
         record) options+=' --netns --duration --receive-buffer --force' ;;
         monitor) options+=' --json --running --control' ;;
         mark) options+=' --delete --running --control' ;;
         metrics) options+=' --running --control' ;;
         run) options+=' --netns --oneshot --json --receive-buffer --control --control-mode --metrics-port' ;;
      esac
      COMPREPLY=($(compgen -W "$options" -- "$current"))
   elif [[ -z $command ]]; then
      COMPREPLY=($(compgen -W "$commands" -- "$current"))
   else
      local IFS=$'\n'
      COMPREPLY=($(compgen -f -- "$current"))
      if [[ $command == show ]]; then
         COMPREPLY+=($(IFS=' ' compgen -W 'destinations groups blocks next-hops interfaces tables allocators handles' -- "$current"))
      fi
      compopt -o filenames 2>/dev/null
   fi
}

complete -F _l3tunnel_agent l3tunnel-agent
