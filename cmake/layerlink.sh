#!/bin/sh
# The link of one layer check (the linker launcher of layercheck_<library>):
#   layerlink.sh <library> <folder> <folders below, comma-separated> -- <link command...>
# Runs the link; when it fails, says after the linker's own messages what the
# failure means, so that an undefined reference reads as the layer rule it
# breaks.
lib=$1
folder=$2
below=$3
shift 4
"$@" && exit 0
status=$?
echo "layer check failed: $lib ($folder/) uses a symbol that neither it nor a layer below it" >&2
echo "defines (see the undefined references above): a use of a layer above or beside it." >&2
echo "$folder may use: $(echo "$below" | tr ',' ' ') (cmake/layers.txt)." >&2
exit $status
