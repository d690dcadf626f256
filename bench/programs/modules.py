# Imports what the interpreter's library has and works with some of it: every module and function
# becomes Java classes at run time. Argument: rounds.
import sys, pkgutil, json, re, random, StringIO, csv, textwrap, difflib

loaded = 0
for _, name, package in pkgutil.iter_modules(sys.path):
    if package or name.startswith('_') or name in ('antigravity', 'this', 'modules'):
        continue
    try:
        __import__(name)
        loaded += 1
    except (ImportError, SyntaxError, AttributeError, NameError, KeyError, OSError, SystemExit):
        pass

random.seed(1)
words = ['w%d' % random.randint(0, 5000) for _ in range(3000)]
total = 0
for round in range(int(sys.argv[1])):
    counts = {}
    for word in words:
        counts[word] = counts.get(word, 0) + 1
    text = json.dumps(sorted(counts.items()))
    total += len(json.loads(text))
    total += len(re.findall(r'w(\d+)5\b', ' '.join(words)))
    out = StringIO.StringIO()
    csv.writer(out).writerows(counts.items())
    total += len(textwrap.wrap(' '.join(words[:500]), 60))
    total += len(list(difflib.ndiff(words[:60], words[30:90])))
print('%d modules, %d' % (loaded, total))
