package com.tessel.prb.workanalysis;

import static com.tessel.prb.workanalysis.DriverTest.same;

import java.util.Arrays;

/** What the driver's parts do without a running agent: option texts, exact bytes, requests. */
final class DriverParts {
    private DriverParts() {}

    static void test() throws Exception {
        decimalsMasksAndEscapesOfOptions();
        whatIsWrongInOptionsIsLeftOut();
        fileNamesCarryTheProcessId();
        dataNamesAndBits();
        recordBytes();
        unsetValuesAreLeftOutAndPairsAreNot();
        largePollsAreCopiedWhole();
        requestsAreChecked();
        factsAreFound();
        bridgeOffersData();
        namesComeFromTheCommand();
    }

    // Options.

    private static void decimalsMasksAndEscapesOfOptions() {
        DriverOptions options = new DriverOptions("file=a\\,b\\\\c%p,name=x=y,poll=0.25,"
                + "interval=7,classes=com.a.*+org.b.C,methods=get*,agent.debug=yes,"
                + "agent.filter=(A;B),data=gc+threads,lib=/l,jar=/j,driver=no,fork=plain");
        same("a,b\\c%p", options.file);
        same("x=y", options.name);
        same(250L, options.pollMs);
        same(7, options.intervalMs);
        same("com.a.*,org.b.C", options.classMasks);
        same("get*", options.methodMasks);
        same("debug=yes,filter=(A;B)", options.agentOptions);
        same(0x2200, options.dataBits);
        same("gc+threads", options.dataAsked);
        same("/l", options.lib);
        DriverOptions none = new DriverOptions(null);
        same("prb-%p.prb", none.file);
        same("", none.name);
        same(1000L, none.pollMs);
        same(10, none.intervalMs);
        same("*", none.classMasks);
        same("*", none.methodMasks);
        same("", none.agentOptions);
        same(0xC0600, none.dataBits);
        same(2000L, new DriverOptions("poll=2").pollMs);
        same(20L, new DriverOptions("poll=.0209").pollMs);
        same(3500L, new DriverOptions("poll=3.5").pollMs);
    }

    private static void whatIsWrongInOptionsIsLeftOut() {
        String[] polls = {"", ".", "x", "1.2.3", "0.019", "3600.001", "-1", "1e3", "9999999999"};
        for (String poll : polls) {
            same(1000L, new DriverOptions("quiet=yes,poll=" + poll).pollMs);
        }
        String[] intervals = {"", "0", "1.5", "60001", "ten", "99999999999999999999"};
        for (String interval : intervals) {
            same(10, new DriverOptions("quiet=yes,interval=" + interval).intervalMs);
        }
        same(0x200, new DriverOptions("quiet=yes,data=threads+nonsense").dataBits);
        same(0xC0600, new DriverOptions("quiet=yes,data=nonsense").dataBits);
        same("*", new DriverOptions("quiet=yes,methods=,classes=+").methodMasks);
        same("prb-%p.prb", new DriverOptions("quiet=yes,,file=,bogus,=,").file);
        Messages.setQuiet(false);
    }

    private static void fileNamesCarryTheProcessId() {
        same("/x/prb-77.prb", DriverOptions.expandFile("/x/prb-%p.prb", 77));
        same("77-77%q%p%", DriverOptions.expandFile("%p-%p%q%%p%", 77));
    }

    private static void dataNamesAndBits() {
        String[] names = {"threads", "methods", "contention", "heap", "gc", "alloc", "errors", "self"};
        int[] bits = {0x200, 0x400, 0x800, 0x1000, 0x2000, 0x8000, 0x40000, 0x80000};
        for (int i = 0; i < names.length; i++) {
            same(bits[i], DataKind.bitOf(names[i]));
            same(names[i], DataKind.namesOf(bits[i], "+"));
        }
        same(DataKind.ALL_BITS, DataKind.bitsOf(names));
        same(0, DataKind.bitOf("Threads"));
        same("threads+self", DataKind.namesOf(0x80200, "+"));
    }

    // Records.

    private static void recordBytes() {
        SampleWriter out = new SampleWriter();
        out.begin(SampleWriter.APPLICATION_SERVER, 0x123456789L, 2);
        out.number(SampleWriter.KEY_PROCESS_ID, 0x100000002L);
        out.text(SampleWriter.KEY_SERVER_NAME, "a\u00e4\u20ac");
        out.pair(2000, -2);
        out.pair(2001, "z");
        out.end();
        same("00000067" + "0000" + "0002" + "00000001"
                + "00000001" + "00000014" + "0000000123456789"
                + "00000001" + "00000015" + "0000000000000002"
                + "00000001" + "00000004" + "0000000100000002"
                + "00000002" + "00000005" + "00000006" + "61c3a4e282ac"
                + "00000001" + "000007d0" + "fffffffffffffffe"
                + "00000002" + "000007d1" + "00000001" + "7a", hex(out));
        out.clear(64);
        out.begin(SampleWriter.END_OF_SAMPLES, 5, 0);
        out.end();
        same("00000028" + "0000" + "0002" + "000003e6"
                + "00000001" + "00000014" + "0000000000000005"
                + "00000001" + "00000015" + "0000000000000000", hex(out));
    }

    private static void unsetValuesAreLeftOutAndPairsAreNot() {
        SampleWriter out = new SampleWriter();
        out.begin(1, -1, -1);
        out.number(4, -1);
        out.number(58, 0);
        out.text(5, "");
        out.text(5, null);
        out.pair(2000, -1);
        out.pair(2001, "");
        out.pair(2002, null);
        out.end();
        same("00000040" + "0000" + "0002" + "00000001"
                + "00000001" + "0000003a" + "0000000000000000"
                + "00000001" + "000007d0" + "ffffffffffffffff"
                + "00000002" + "000007d1" + "00000000"
                + "00000002" + "000007d2" + "00000000", hex(out));
    }

    private static void largePollsAreCopiedWhole() {
        byte[] poll = new byte[300001];
        for (int i = 0; i < poll.length; i++) {
            poll[i] = (byte) (i * 31);
        }
        SampleWriter out = new SampleWriter();
        out.append(poll);
        out.begin(998, 1, 0);
        out.end();
        same(poll.length + 44, out.size());
        same(true, Arrays.equals(poll, Arrays.copyOf(out.buffer(), poll.length)));
        out.clear(1000);
        same(0, out.size());
        same(1000, out.buffer().length);
    }

    private static void requestsAreChecked() throws InvalidRequest {
        DataRequest request = new DataRequest(0x600, 9);
        same(0x600L, request.getType());
        same(9, request.getThreadId());
        for (long wrong : new long[] {0, 0x100, 0x4000, 0x100000200L, -1}) {
            try {
                new DataRequest(wrong, 0);
                same("InvalidRequest", "nothing for " + wrong);
            } catch (InvalidRequest e) {
                same("no such data: 0x" + Long.toHexString(wrong), e.getMessage());
            }
        }
    }

    private static void factsAreFound() {
        String[] facts = {"version=1", null, "available=gc+heap", "availableX=no", "limits="};
        same("gc+heap", BridgeLink.fact(facts, "available"));
        same("1", BridgeLink.fact(facts, "version"));
        same("", BridgeLink.fact(facts, "limits"));
        same("", BridgeLink.fact(facts, "avail"));
        same(0, BridgeLink.readFacts().length); // Not bound here.
        same(0, BridgeLink.readCounters().length);
    }

    private static void bridgeOffersData() {
        String all = "quiet=yes,data=methods+contention+heap+gc+alloc+errors+self";
        String[] some = {"version=2", "available=threads+gc+alloc+what"};
        same(0xCA600, ProfilerDriver.available(new DriverOptions(all), some));
        same(0xC0600, ProfilerDriver.available(new DriverOptions(all), new String[0]));
        same(0x2000, ProfilerDriver.available(new DriverOptions("data=gc"), some));
        Messages.setQuiet(false);
    }

    private static void namesComeFromTheCommand() {
        same("com.x.Main", RunFacts.mainOf("com.x.Main --password secret"));
        same("app.jar", RunFacts.mainOf("/opt/lib/app.jar -v"));
        same("com.x.Main", RunFacts.mainOf("module/com.x.Main"));
        same("java", RunFacts.mainOf(""));
        same(32, RunFacts.wordBits("32", "i386"));
        same(64, RunFacts.wordBits("64", "amd64"));
        same(64, RunFacts.wordBits("unknown", "aarch64"));
        same(32, RunFacts.wordBits("", "i386"));
    }

    private static String hex(SampleWriter out) {
        StringBuilder digits = new StringBuilder();
        for (int i = 0; i < out.size(); i++) {
            digits.append(Character.forDigit(out.buffer()[i] >> 4 & 15, 16));
            digits.append(Character.forDigit(out.buffer()[i] & 15, 16));
        }
        return digits.toString();
    }
}
