# bash completion for crandle: commands, their options, option values and file names.
# Installed into share/bash-completion/completions/crandle; test_tool_manual checks that every
# command and option of `crandle --help-all` appears here.

_crandle() {
  local cur prev words cword
  _init_completion -n = || return

  local global_options="-h --help --help-all --version --set --settings"
  local commands="info apply eval look convert check plot formats"
  local settings_keys="ColorTransforms.AlwaysUpsampleToPoT= ColorTransforms.EnableFloatLUTs=
    ColorTransforms.LUTBaseDirectory= ColorTransforms.ShippedLUTDirectory=
    ColorTransforms.LUTCacheBudgetMiB="

  # Values of the options that take one.
  case $prev in
    --set)
      compopt -o nospace
      COMPREPLY=($(compgen -W "$settings_keys" -- "$cur"))
      return
      ;;
    --settings | --preview | -o | --output | --payload | --cc-id)
      _filedir
      return
      ;;
    --depth)
      COMPREPLY=($(compgen -W "8 16 half float" -- "$cur"))
      return
      ;;
    --interp)
      COMPREPLY=($(compgen -W "trilinear tetrahedral" -- "$cur"))
      return
      ;;
    --format)
      COMPREPLY=($(compgen -W "cube 3dl cub otx3" -- "$cur"))
      return
      ;;
    --device)
      COMPREPLY=($(compgen -W "cpu opencl opencl:0 cuda cuda:0 auto" -- "$cur"))
      return
      ;;
    --threads | --frames | --size | --name | --guid)
      return
      ;;
  esac

  # The command (and the look command's own command), skipping global options and their values.
  local command="" subcommand="" i
  for ((i = 1; i < cword; i++)); do
    case ${words[i]} in
      --set | --settings) ((i++)) ;;
      -*) ;;
      *)
        if [[ -z $command ]]; then
          command=${words[i]}
        elif [[ $command == look && -z $subcommand ]]; then
          subcommand=${words[i]}
        fi
        ;;
    esac
  done

  local options=""
  case $command in
    "")
      if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "$global_options" -- "$cur"))
      else
        COMPREPLY=($(compgen -W "$commands" -- "$cur"))
      fi
      return
      ;;
    info) options="--help --json --from-bytes --system --cc-id" ;;
    apply) options="--help --threads --preview --depth --frames --interp --device --premultiplied --payload --cc-id --verbose" ;;
    eval) options="--help --exact --device --interp --cc-id" ;;
    convert) options="--help --size --format --bits --cc-id" ;;
    check) options="--help --cc-id" ;;
    plot) options="--help -o --output --cc-id" ;;
    formats) options="--help" ;;
    look)
      case $subcommand in
        "")
          if [[ $cur == -* ]]; then
            COMPREPLY=($(compgen -W "--help" -- "$cur"))
          else
            COMPREPLY=($(compgen -W "show pack" -- "$cur"))
          fi
          return
          ;;
        show) options="--help --payload --json" ;;
        pack) options="--help -o --output --payload --name --guid" ;;
      esac
      ;;
  esac

  if [[ $cur == -* ]]; then
    COMPREPLY=($(compgen -W "$options" -- "$cur"))
  elif [[ $command != formats ]]; then
    # LUT files, images, sequence patterns and folders: any path.
    _filedir
  fi
} &&
  complete -F _crandle crandle
