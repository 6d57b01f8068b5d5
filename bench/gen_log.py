#!/usr/bin/env python3
"""Writes a deterministic web-server log of about the asked size (MB) to stdout.

Fixed seed, so every run and every machine gets the same bytes. The mix of
levels makes ERROR frequent enough to matter (a few per cent of the lines)
and the addresses give the regular-expression cases plenty of matches.
"""
import random
import sys

def main():
    megabytes = int(sys.argv[1]) if len(sys.argv) > 1 else 200
    target = megabytes * 1000 * 1000
    rng = random.Random(20261121)
    methods = ["GET"] * 12 + ["POST"] * 4 + ["PUT", "DELETE", "HEAD"]
    paths = ["/", "/index.html", "/api/v1/items", "/api/v1/users/42", "/login", "/logout",
             "/static/app.js", "/static/style.css", "/images/logo.png", "/search?q=mendo"]
    levels = ["INFO"] * 30 + ["DEBUG"] * 8 + ["WARN"] * 3 + ["ERROR"] * 2 + ["error"]
    agents = ["Mozilla/5.0 (X11; Linux x86_64)", "curl/8.5.0", "Wget/1.21", "python-requests/2.31"]
    out = sys.stdout.buffer
    written = 0
    chunk = []
    while written < target:
        day = rng.randint(1, 28)
        line = "2026-11-%02d %02d:%02d:%02d %s %d.%d.%d.%d \"%s %s HTTP/1.1\" %d %d \"%s\"%s\n" % (
            day, rng.randint(0, 23), rng.randint(0, 59), rng.randint(0, 59),
            rng.choice(levels),
            rng.randint(1, 254), rng.randint(0, 255), rng.randint(0, 255), rng.randint(1, 254),
            rng.choice(methods), rng.choice(paths),
            rng.choice([200, 200, 200, 301, 404, 500]), rng.randint(0, 99999),
            rng.choice(agents),
            " upstream ERROR: timeout" if rng.random() < 0.01 else "")
        data = line.encode()
        chunk.append(data)
        written += len(data)
        if len(chunk) >= 10000:
            out.write(b"".join(chunk))
            chunk = []
    out.write(b"".join(chunk))

if __name__ == "__main__":
    main()
