# Where the JDKs are. Sourced by the scripts; each function prints a JAVA_HOME or fails.

PRB_JDK32_DIR="${XDG_CACHE_HOME:-$HOME/.cache}/prbprof/jdk-17-i386"

# The 64-bit JDK 17 that builds the Java side and is tested first.
prb_java64() {
    local home="${PRB_JAVA_HOME:-/usr/lib/jvm/java-17-openjdk-amd64}"
    [ -x "$home/bin/javac" ] && echo "$home"
}

# The 32-bit JDK 17, unpacked by tools/setup.
prb_java32() {
    local home="$PRB_JDK32_DIR/root/usr/lib/jvm/java-17-openjdk-i386"
    [ -x "$home/bin/java" ] && "$home/bin/java" -version >/dev/null 2>&1 && echo "$home"
}

# Further JDKs for the live tests, one a line: those of PRB_TEST_JDKS (a list of JAVA_HOMEs,
# separated by colons or blanks), else every other one below /usr/lib/jvm that is 17 or newer.
prb_more_javas() {
    local home version
    if [ -n "${PRB_TEST_JDKS:-}" ]; then
        tr ': ' '\n\n' <<<"$PRB_TEST_JDKS" | while read -r home; do
            [ -n "$home" ] && [ -x "$home/bin/java" ] && echo "$home"
        done
        return 0
    fi
    for home in /usr/lib/jvm/*; do
        [ -d "$home" ] && [ ! -L "$home" ] && [ -x "$home/bin/java" ] || continue
        [ "$home" != "$(prb_java64)" ] || continue
        version=$(sed -n 's/^JAVA_VERSION="\([0-9]*\).*/\1/p' "$home/release" 2>/dev/null)
        [ "${version:-0}" -ge 17 ] && echo "$home"
    done
    return 0
}
