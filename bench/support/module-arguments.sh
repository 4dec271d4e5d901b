# module-arguments: the command line the module comparisons share, sourced by
# bench/compare-modules.sh and bench/module-speed.sh:
#   [BUILD-DIR] [MODULE...]
# module_arguments DEFAULT-BUILD TOOL... -- "$@" sets build, oxamod and
# modules (every MOD, S3M and XM file of ../shared/corpus when none are
# given), after checking that OxaMod is built and each TOOL is on PATH.
# Exits 1 when something is missing, 0 when there is nothing to compare.
module_arguments() {
  build=$1
  shift
  local tools=()
  while [[ $1 != -- ]]; do tools+=("$1"); shift; done
  shift
  if [[ $# -gt 0 && -d $1 ]]; then
    build=$1
    shift
  fi
  oxamod="$build/OxaMod"
  [[ -x $oxamod ]] || { echo "no $oxamod; build first"; exit 1; }
  for tool in "${tools[@]}"; do
    command -v "$tool" >/dev/null || { echo "$tool is missing (scripts/install-deps installs it)"; exit 1; }
  done
  modules=("$@")
  for module in "${modules[@]}"; do
    [[ -f $module ]] || { echo "no such module: $module"; exit 1; }
  done
  if [[ ${#modules[@]} -eq 0 ]]; then
    shopt -s nullglob
    modules=(../shared/corpus/mod/*.mod ../shared/corpus/s3m/*.s3m ../shared/corpus/xm/*.xm)
    shopt -u nullglob
    [[ ${#modules[@]} -gt 0 ]] || { echo "no modules given and no corpus at ../shared/corpus"; exit 0; }
  fi
}
