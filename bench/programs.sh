# The programs that are measured: sourced by bench/run and bench/share after tools/env.sh, in the
# project's root. Installs what is missing, makes $out (removed at the end) and sets $java.

prb_programs="javac interpreter fop database server"
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
java=${PRB_BENCH_JAVA:-$(prb_java64)}
prb_sources="${XDG_CACHE_HOME:-$HOME/.cache}/prbprof/jdk-sources"

prb_need=()
for package in jython fop libh2-java; do
    dpkg -s "$package" >/dev/null 2>&1 || prb_need+=("$package")
done
if [ ${#prb_need[@]} -gt 0 ]; then
    echo "bench: installing ${prb_need[*]}"
    apt-get install -y -qq --no-install-recommends "${prb_need[@]}" >/dev/null
fi
if [ ! -d "$prb_sources/java.base" ]; then
    echo "bench: unpacking the JDK's sources into $prb_sources"
    (cd "$out" && apt-get -qq download openjdk-17-source)
    dpkg-deb -x "$out"/*.deb "$out/root"
    mkdir -p "$prb_sources"
    (cd "$prb_sources" && "$(prb_java64)/bin/jar" xf "$out"/root/usr/lib/jvm/openjdk-17/lib/src.zip java.base)
fi

# prb_compile TITLE FOLDER...: a run of the compiler over the JDK's sources there.
prb_compile() {
    local base=$prb_sources/java.base title=$1
    shift
    find "${@/#/$base/}" -name '*.java' | sort >"$out/sources"
    prb_title="$title, $(wc -l <"$out/sources") files"
    prb_command=(javac -nowarn -proc:none --patch-module "java.base=$base" -d "$out/classes" "@$out/sources")
}

# prb_program NAME: sets prb_title and prb_command.
prb_program() {
    local programs=$PWD/build/release/bench/programs.jar jar fop_jars=/usr/share/fop/fop-hyph.jar
    for jar in fop commons-io xml-apis batik-all commons-logging xmlgraphics-commons xml-apis-ext fontbox2; do
        fop_jars+=:/usr/share/java/$jar.jar
    done
    case $1 in
    javac) prb_compile "compiler" java/util java/time ;;
    interpreter)
        prb_title="Python interpreter, 190 modules made classes"
        prb_command=(java -jar /usr/share/java/jython.jar -Dpython.home=/usr/share/jython
            -S bench/programs/modules.py 5)
        ;;
    fop)
        [ -f "$out/doc.fo" ] ||
            "$java/bin/java" -cp "$programs" com.tessel.prb.bench.TableDocument "$out/doc.fo" 400
        prb_title="document formatter, 800 pages"
        prb_command=(java -Djava.awt.headless=true -cp "$fop_jars" org.apache.fop.cli.Main -q
            -fo "$out/doc.fo" -pdf "$out/doc.pdf")
        ;;
    database)
        prb_title="database, 50 connections over few tables"
        prb_command=(java -cp "$programs:/usr/share/java/h2.jar" com.tessel.prb.bench.DatabaseLoad
            "jdbc:h2:mem:bench;LOCK_TIMEOUT=20000" 50 1500)
        ;;
    server)
        prb_title="sample server, 15 s"
        prb_command=(java -jar build/release/sample.jar --seconds 15)
        ;;
    *)
        echo "bench: '$1' is not known: $prb_programs (and, for bench/run, start idle heap)" >&2
        exit 2
        ;;
    esac
}

# An option of the JVM as java or javac takes it.
prb_jvm_option() {
    if [ "$1" = javac ]; then echo "-J$2"; else echo "$2"; fi
}
