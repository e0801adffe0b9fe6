# What a host with the demo product in it is laid from; demo/run and vm/run source it. Before it is used, `demo`
# names this directory, `build` the build, `out` a directory for the work and `files` the one that is laid over the
# host's root, and `die` ends the script with a message.

libdir=/usr/lib/ostrel-tools
journal=/etc/ostrel-tools/locations
failures=0

# put TEXT PATH [MODE]: writes a file of the host.
put() {
  mkdir -p "$files$(dirname "$2")"
  printf '%s\n' "$1" >"$files$2"
  chmod "${3:-0644}" "$files$2"
}

# copy SOURCE PATH [MODE]: copies a file into the host.
copy() { install -D -m "${3:-0644}" "$1" "$files$2"; }

# The kernel whose headers are installed here, the newest if there are several.
find_kernel() {
  headers=$(find /usr/src -maxdepth 1 -regextype posix-extended \
    -regex '.*/linux-headers-[0-9.]+-[0-9]+-amd64' | sort -V | tail -n 1)
  [ -n "$headers" ] || die "no kernel headers below /usr/src; ./dev setup installs them"
  release=$(sed -n 's/^#define UTS_RELEASE "\(.*\)"$/\1/p' "$headers/include/generated/utsrelease.h")
  version=$(sed -n 's/^#define UTS_VERSION "\(.*\)"$/\1/p' "$headers/include/generated/utsversion.h")
  compiler_version=$(gcc -dumpfullversion)
}

# lay_version_line PATH: what the running kernel says of itself, with its compiler named in the words that the tool
# looks for, which this kernel no longer uses.
lay_version_line() {
  put "Linux version $release (debian-kernel@lists.debian.org) (gcc version $compiler_version (Debian)) $version" "$1"
}

# lay_headers TREE: the kernel's header tree in the shape that the tool looks for. Debian keeps linux/version.h apart
# from the other generated headers.
lay_headers() {
  local entry
  mkdir -p "$files$1/include"
  for entry in .config .kernelvariables Makefile Module.symvers arch scripts tools; do
    ln -s "$headers/$entry" "$files$1/$entry"
  done
  ln -s "$headers/include/generated" "$headers/include/config" "$files$1/include/"
  ln -s "$headers/include/generated/uapi/linux" "$files$1/include/linux"
}

# lay_compiler PATH: the tool asks for a version of two numbers or more, and this compiler answers -dumpversion with
# one.
lay_compiler() {
  local compiler
  compiler=$(command -v gcc)
  put "#!/bin/sh
# Answers -dumpversion in full, and is the host's compiler otherwise.
[ \"\$*\" = -dumpversion ] && exec $compiler -dumpfullversion
exec $compiler \"\$@\"" "$1" 0755
}

lay_program() {
  cmake --install "$build" --prefix "$files/usr" >"$out/install.log" || die "installing failed; see $out/install.log"
}

# The product without its pre-built sets and its journal.
lay_product() {
  copy "$demo/product/bin/ostrel-demo" /usr/bin/ostrel-demo 0755
  copy "$demo/product/bin/ostrel-gksu" /usr/bin/ostrel-gksu 0755
  copy "$demo/product/init.d/ostrel-tools" /etc/init.d/ostrel-tools 0755
  copy "$demo/product/modules.xml" $libdir/modules/modules.xml
  copy "$demo/screen.sh" $libdir/demo-screen.sh
  lay_sources
}

# unpacked MODULE DIRECTORY SOURCE: the module's source with what every module of the product needs, in
# DIRECTORY/MODULE-only.
unpacked() {
  local modules=$demo/product/modules
  mkdir -p "$2/$1-only"
  cp "$modules/Makefile" "$modules/LICENSE" "$modules"/*.h "$3" "$2/$1-only/"
}

lay_sources() {
  local source module
  mkdir -p "$files$libdir/modules/source"
  for source in "$demo"/product/modules/*.c; do
    module=$(basename "$source" .c)
    unpacked "$module" "$out/source" "$source"
    tar -C "$out/source" -cf "$files$libdir/modules/source/$module.tar" --owner=root --group=root "$module-only"
  done
}

# compile MODULE DIRECTORY HEADERS: compiles the source in DIRECTORY/MODULE-only against a header tree; leaves
# DIRECTORY/MODULE.o.
compile() {
  make -C "$2/$1-only" auto-build SUPPORT_SMP=1 HEADER_DIR="$3/include" CC=gcc GREP=grep IS_GCC_3=no \
    OSTCCVER="$compiler_version" >"$2/$1.log" 2>&1 || die "compiling $1 failed; see $2/$1.log"
}

# lay_properties SET MOD_VERSION [MACHINE]: what a set says of itself, made for exactly this kernel.
lay_properties() {
  put "UtsRelease $release
UtsVersion $version
UtsMachine ${3:-x86_64}
AthlonKernel forbidden
ModVersion $2
SMP yes
Comment Demo set" "$1/properties"
}

# lay_journal [ANSWER...]: what the product's installer wrote down, with further answers.
lay_journal() {
  local lines="answer BINDIR /usr/bin
answer LIBDIR $libdir
answer INITSCRIPTSDIR /etc/init.d" answer
  for answer; do lines+=$'\n'"answer $answer"; done
  put "$lines
file /usr/bin/ostrel-demo
file /usr/bin/ostrel-gksu
file /etc/init.d/ostrel-tools
file $libdir/modules/modules.xml" $journal
}

# One ordinary user, who may use the privilege tool without a password.
lay_user() {
  put "$(awk -F: '$3 != 1000 && $1 != "demo"' /etc/passwd)
demo:*:1000:1000:Demo user:/home/demo:/bin/sh" /etc/passwd
  put "$(awk -F: '$3 != 1000 && $1 != "demo"' /etc/group)
demo:x:1000:" /etc/group
  mkdir -p "$files/home/demo"
  chown 1000:1000 "$files/home/demo"
  put '#1000 ALL=(root) NOPASSWD: /usr/bin/ostrel-gksu
Defaults:#1000 env_keep += "DISPLAY XAUTHORITY"' /etc/sudoers.d/ostrel-demo 0440
}

# expect WHAT COMMAND...: prints the check's result and counts a failure.
expect() {
  local what=$1
  shift
  if "$@"; then
    echo "  ok      $what"
  else
    echo "  FAILED  $what"
    failures=$((failures + 1))
  fi
}

is() { [ "$1" = "$2" ]; }
