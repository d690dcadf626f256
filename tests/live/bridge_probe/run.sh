#!/bin/bash
# run.sh CASE JAVA_HOME BRIDGE PROBE DRIVER_JAR PROGRAM_JAR STALLS_PROBE ALLOC_PROBE: one case of the bridge's live test.
# Each case starts a real JVM and checks the program's output, its exit code, what is said on
# standard error, and the probe's own verdict.
set -u
case=$1 java=$2/bin/java bridge=$3 probe=$4 jar=$5 program=$6 stalls=$7 alloc=$8
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
export PRB_PROBE_LOG=$work/probe.log

fail() {
    echo "$case: $*"
    echo "--- standard output"; cat out
    echo "--- standard error"; cat err
    echo "--- probe"; cat probe.log 2>/dev/null
    exit 1
}

# run EXIT_CODE arguments...: the program under the arguments.
run() {
    local wanted=$1
    shift
    timeout -k 5 150 "$java" -Xmx512m "$@" -cp "$program" Program >out 2>err
    local code=$?
    [ $code = "$wanted" ] || fail "exit code $code instead of $wanted"
    ls hs_err* >/dev/null 2>&1 && fail "the JVM crashed: $(head -20 hs_err*)"
    return 0
}

profiled() {
    run 7 "$@"
    verdict
}

# stalled GC WHAT MILLISECONDS: the program that blocks and collects.
stalled() {
    local gc=$1 sizes=sizes
    shift
    [ "$gc" = Shenandoah ] && sizes=pauses
    # The VM does not name what ZGC has in use since it keeps its memory by processor nodes.
    [ "$gc" = Z ] && { [ "$feature" -ge 25 ] && sizes=nosizes || sizes=pauses; }
    timeout -k 5 60 "$java" -Xms300m -Xmx300m "-XX:+Use${gc}GC" "-agentpath:$bridge=lib=$stalls,jar=$jar" \
        -cp "$program" Stalls "$@" $sizes >out 2>err
    local code=$?
    ls hs_err* >/dev/null 2>&1 && fail "$gc: the JVM crashed: $(head -20 hs_err*)"
    [ $code = 7 ] || fail "$gc: exit code $code instead of 7"
    verdict
}

# allocating GC MILLISECONDS JVM_OPTIONS...: the program that counts what it allocates.
allocating() {
    local gc=$1 storm=$2 frees=frees arenas
    shift 2
    case $gc in
        Serial) arenas="1 Eden Space, 2 Survivor Space, 3 Tenured Gen" ;;
        Parallel) arenas="1 PS Eden Space, 2 PS Survivor Space, 3 PS Old Gen" ;;
        G1) arenas="1 G1 Eden Space, 2 G1 Survivor Space, 3 G1 Old Gen" ;;
        Shenandoah) arenas="1 Shenandoah" frees=nofrees ;;
        Z) arenas="1 ZHeap" frees=nofrees ;;
    esac
    timeout -k 5 120 "$java" -Xms300m -Xmx300m "-XX:+Use${gc}GC" "$@" \
        "-agentpath:$bridge=data=alloc,lib=$alloc,jar=$jar" \
        -cp "$program" Allocations $frees "$arenas" "$storm" >out 2>err
    local code=$?
    ls hs_err* >/dev/null 2>&1 && fail "$gc: the JVM crashed: $(head -20 hs_err*)"
    [ $code = 7 ] || fail "$gc: exit code $code instead of 7"
}

verdict() {
    printf 'program begins\nprogram ends\n' | cmp -s - out || fail "the program's output changed"
    [ -s err ] && fail "something was said on standard error"
    [ "$(tail -1 probe.log)" = done ] || fail "the probe found faults or did not end"
    grep -q '^driver stopped$' probe.log || fail "the driver was not stopped"
}

# said TEXT arguments...: one line with the text, and a program that only prints.
said() {
    local text=$1
    shift
    timeout -k 5 60 "$java" "$@" -cp "$program" Plain >out 2>err
    local code=$?
    [ $code = 5 ] || fail "exit code $code instead of 5"
    [ "$(cat out)" = "plain output" ] || fail "the program's output changed"
    [ "$(wc -l <err)" = 1 ] || fail "not one line for: $*"
    grep -qF -- "$text" err || fail "the line does not say: $text"
    grep -q '^prbprof: ' err || fail "the line does not begin with prbprof:"
}

options="lib=$probe,jar=$jar"
feature=$("$java" -version 2>&1 | sed -n '1s/[^"]*"\([0-9]*\).*/\1/p')
case $case in
    early) profiled "-agentpath:$bridge=$options,agent.mode=early" ;;
    late) profiled "-agentpath:$bridge=$options,agent.mode=late" ;;
    xrun)
        LD_LIBRARY_PATH=$(dirname "$probe") profiled "-Xrunprbprof:mode=early" \
            "-agentpath:$bridge=jar=$jar,agent.mode=early"
        ;;
    collectors)
        for gc in Serial Parallel G1 Shenandoah Z; do
            "$java" "-XX:+Use${gc}GC" -version >/dev/null 2>&1 || continue
            profiled "-XX:+Use${gc}GC" "-agentpath:$bridge=$options,agent.mode=late"
        done
        ;;
    events)
        for gc in Serial Parallel G1 Shenandoah Z; do
            "$java" "-XX:+Use${gc}GC" -version >/dev/null 2>&1 || continue
            stalled $gc events 0
        done
        ;;
    lookups)
        # Without borrowed monitors each of these stands still within a second.
        for gc in Serial Parallel G1 Shenandoah Z; do
            "$java" "-XX:+Use${gc}GC" -version >/dev/null 2>&1 || continue
            stalled $gc lookups "${PRB_LOOKUPS_MS:-5000}"
        done
        ;;
    allocations)
        for gc in Serial Parallel G1 Shenandoah Z; do
            "$java" "-XX:+Use${gc}GC" -version >/dev/null 2>&1 || continue
            allocating $gc "${PRB_STORM_MS:-2000}"
            verdict
        done
        allocating Serial 200 -Xint
        verdict
        ;;
    checked)
        # -Xcheck:jni has warnings of its own about the JDK's classes; ours must not be among them.
        run 7 -Xcheck:jni "-agentpath:$bridge=$options,agent.mode=early"
        grep -q 'tessel\|prbprof' err && fail "-Xcheck:jni found fault with the bridge"
        [ "$(tail -1 probe.log)" = done ] || fail "the probe found faults or did not end"
        allocating Serial 200 -Xcheck:jni
        grep -q 'tessel\|prbprof' err && fail "-Xcheck:jni found fault with allocation events"
        [ "$(tail -1 probe.log)" = done ] || fail "the probe found faults or did not end"
        ;;
    refusals)
        other=$work/other.so
        head -c 64 "$bridge" >"$other"
        # The word size in the ELF header, the other way round.
        bits=$(od -An -tu1 -j4 -N1 "$bridge" | tr -d ' ')
        printf "\\$((3 - bits))" | dd of="$other" bs=1 seek=4 conv=notrunc 2>/dev/null
        echo text >text.so
        said "option 'bogus' is not known" "-agentpath:$bridge=$options,bogus=1"
        said "option interval='0' is not right" "-agentpath:$bridge=$options,interval=0"
        said "option 'driver' has no value" "-agentpath:$bridge=$options,driver"
        said "cannot read /nowhere/libprbprof.so" "-agentpath:$bridge=lib=/nowhere/libprbprof.so,jar=$jar"
        said "cannot read /nowhere/x.jar" "-agentpath:$bridge=lib=$probe,jar=/nowhere/x.jar"
        said "-bit library in a " "-agentpath:$bridge=lib=$other,jar=$jar"
        said "is not a library" "-agentpath:$bridge=lib=text.so,jar=$jar"
        said "is not a jar file" "-agentpath:$bridge=lib=$probe,jar=text.so"
        said "has no JVM_OnLoad" "-agentpath:$bridge=lib=$bridge,jar=$jar"
        said "the Java driver failed: java.lang.IllegalStateException: thrown by the test" \
            "-agentpath:$bridge=$options,agent.mode=early,name=throw"
        said "is not in the jar" "-agentpath:$bridge=lib=$probe,jar=$program,agent.mode=early"
        said "is loaded already" "-agentpath:$bridge=$options,agent.mode=early" \
            "-agentpath:$bridge=$options,agent.mode=early"
        ;;
    *)
        echo "no case $case"
        exit 1
        ;;
esac
