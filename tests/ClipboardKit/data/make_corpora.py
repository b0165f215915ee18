#!/usr/bin/env python3
"""Writes the two clipboard corpora used by ClipboardKitTests.

likely-secrets.jsonl  secret-shaped strings built from the detector's prefix table (every
                      rule at both edges of its body length, bare and inside prose, shell,
                      JSON and config text), plus private keys, secret-access-key
                      assignments, authorisation headers, card numbers and one-time codes.
ordinary-clips.jsonl  everyday clipboard texts that must stay in the history.

Every value is random filler drawn from a fixed seed: no credential, key or card here was
ever issued. Run from anywhere; the output is deterministic:
    python3 tests/ClipboardKit/data/make_corpora.py
"""
import base64
import json
import os
import random
import string

HERE = os.path.dirname(os.path.abspath(__file__))
rng = random.Random(20240517)

UPPER = string.ascii_uppercase
LOWER = string.ascii_lowercase
DIGITS = string.digits
ALNUM = UPPER + LOWER + DIGITS
ALPHABETS = {
    "alphanumeric": ALNUM,
    "alphanumericUnderscore": ALNUM + "_",
    "base64URL": ALNUM + "-_",
    "alphanumericDash": ALNUM + "-",
    "upperDigit": UPPER + DIGITS,
    "lowerHex": "0123456789abcdef",
}

# prefix, kind, alphabet, minBody, maxBody, needsLongRun
RULES = [
    ("AKIA", "apiKey", "upperDigit", 16, 16, False),
    ("ASIA", "apiKey", "upperDigit", 16, 16, False),
    ("ghp_", "token", "alphanumeric", 36, 255, False),
    ("gho_", "token", "alphanumeric", 36, 255, False),
    ("ghu_", "token", "alphanumeric", 36, 255, False),
    ("ghs_", "token", "alphanumeric", 36, 255, False),
    ("ghr_", "token", "alphanumeric", 36, 255, False),
    ("github_pat_", "token", "alphanumericUnderscore", 50, 255, False),
    ("glpat-", "token", "base64URL", 20, 255, False),
    ("xoxb-", "token", "alphanumericDash", 20, 255, False),
    ("xoxa-", "token", "alphanumericDash", 20, 255, False),
    ("xoxp-", "token", "alphanumericDash", 20, 255, False),
    ("xoxr-", "token", "alphanumericDash", 20, 255, False),
    ("xoxs-", "token", "alphanumericDash", 20, 255, False),
    ("sk_live_", "apiKey", "alphanumeric", 20, 255, False),
    ("rk_live_", "apiKey", "alphanumeric", 20, 255, False),
    ("sk_test_", "apiKey", "alphanumeric", 20, 255, False),
    ("rk_test_", "apiKey", "alphanumeric", 20, 255, False),
    ("whsec_", "apiKey", "alphanumeric", 32, 255, False),
    ("sk-", "apiKey", "base64URL", 32, 512, True),
    ("AIza", "apiKey", "base64URL", 35, 35, False),
    ("SK", "apiKey", "lowerHex", 32, 32, False),
    ("npm_", "token", "alphanumeric", 36, 36, False),
    ("pypi-", "token", "base64URL", 50, 2048, False),
]
LONG_RUN = 39  # more than 38 characters of [A-Za-z0-9+/=]


def rand(alphabet, n):
    return "".join(rng.choice(alphabet) for _ in range(n))


def body(alphabet_name, n, long_run):
    alphabet = ALPHABETS[alphabet_name]
    text = list(rand(alphabet, n))
    if long_run:
        start = rng.randrange(0, n - LONG_RUN + 1)
        text[start:start + LONG_RUN + 1] = rand(ALNUM, min(LONG_RUN + 1, n - start))
    return "".join(text)


CONTEXTS = [
    lambda s: s,
    lambda s: f"export SERVICE_TOKEN={s}",
    lambda s: json.dumps({"name": "deploy", "credential": s}),
    lambda s: f"Here is the key you asked for: {s}, please rotate it after the demo.",
    lambda s: f"token = \"{s}\"\n",
]


def secrets():
    out = []
    for prefix, kind, alphabet, lo, hi, long_run in RULES:
        # "sk-" needs a long run inside its body, so its shortest flagged body is the run.
        low_edge = max(lo, LONG_RUN) if long_run else lo
        lengths = [low_edge, hi, (low_edge + hi) // 2] if lo != hi else [lo, lo, lo]
        for i, ctx in enumerate(CONTEXTS):
            n = lengths[i % len(lengths)]
            out.append({"kind": kind, "rule": prefix, "text": ctx(prefix + body(alphabet, n, long_run))})
        for n in (low_edge, hi):
            out.append({"kind": kind, "rule": prefix,
                        "text": CONTEXTS[0](prefix + body(alphabet, n, long_run))})

    def pem(label, lines=6):
        b64 = "\n".join(base64.b64encode(rng.randbytes(48)).decode() for _ in range(lines))
        return f"-----BEGIN {label}-----\n{b64}\n-----END {label}-----\n"

    for label in ("RSA PRIVATE KEY", "PRIVATE KEY", "EC PRIVATE KEY", "OPENSSH PRIVATE KEY",
                  "ENCRYPTED PRIVATE KEY", "DSA PRIVATE KEY", "PGP PRIVATE KEY BLOCK"):
        out.append({"kind": "privateKey", "rule": "pem", "text": pem(label)})
        out.append({"kind": "privateKey", "rule": "pem",
                    "text": "key.pem contents:\n" + pem(label, 3)})

    def aws_value():
        return rand(ALNUM + "+/", 40)

    for fmt in ("aws_secret_access_key = {v}", "AWS_SECRET_ACCESS_KEY={v}",
                "[default]\naws_access_key_id = EXAMPLEID\naws_secret_access_key = {v}\n",
                "{{\"aws_secret_access_key\": \"{v}\"}}", "export AWS_SECRET_ACCESS_KEY=\"{v}\"",
                "aws_secret_access_key: {v}"):
        out.append({"kind": "apiKey", "rule": "aws", "text": fmt.format(v=aws_value())})

    tok = lambda n: rand(ALNUM + "-._~+/", n - 1) + rng.choice(ALNUM)
    for fmt in ("Authorization: Bearer {t}", "Bearer {t}", "Basic {b}",
                "curl -H 'Authorization: Bearer {t}' https://api.example.test/v1/items",
                "{{\"headers\": {{\"Authorization\": \"Bearer {t}\"}}}}",
                "authorization: basic {b}", "Authorization: {t}",
                "GET /v1/me HTTP/1.1\nHost: api.example.test\nAuthorization: Bearer {t}\nAccept: */*",
                "  bearer {t}  ", "headers['Authorization'] = 'Basic {b}'"):
        b = base64.b64encode(f"user{rng.randrange(1000)}:{rand(ALNUM, 12)}".encode()).decode()
        out.append({"kind": "token", "rule": "authorization", "text": fmt.format(t=tok(30), b=b)})

    def luhn_complete(partial):
        digits = [int(c) for c in partial]
        total = 0
        for i, d in enumerate(reversed(digits)):
            if i % 2 == 0:
                d *= 2
                if d > 9:
                    d -= 9
            total += d
        return partial + str((10 - total % 10) % 10)

    brands = [("4", 16), ("4", 13), ("4", 19), ("51", 16), ("55", 16), ("2221", 16),
              ("2720", 16), ("34", 15), ("37", 15), ("6011", 16), ("65", 16), ("35", 16),
              ("36", 14), ("62", 19)]
    for start, length in brands:
        number = luhn_complete(start + rand(DIGITS, length - len(start) - 1))
        out.append({"kind": "cardNumber", "rule": "card", "text": number})
        if length == 16:
            sep = rng.choice(" -")
            grouped = sep.join(number[i:i + 4] for i in range(0, 16, 4))
            out.append({"kind": "cardNumber", "rule": "card", "text": f"Card: {grouped} exp 09/29"})
        elif length == 15:
            grouped = f"{number[:4]} {number[4:10]} {number[10:]}"
            out.append({"kind": "cardNumber", "rule": "card", "text": grouped})

    for code in ("482913", "004213", "90210573", "123 456", "4821-9034", "  771204\n", "1234 5678"):
        out.append({"kind": "oneTimeCode", "rule": "otp", "text": code})
    return out


WORDS = ("the a of to and in that we it for on with as you this be at by not are from or have "
         "an they which one had word but what all were when there can said use each she how "
         "their will up other about out many then them these so some her would make like him "
         "into time has look two more write go see number way could people my than first water "
         "been call who oil its now find long down day did get come made may part meeting "
         "project invoice basic bearer secret private key token password deploy server "
         "release customer report budget quarter design review schedule lunch flight hotel "
         "authorization access task risk desk skill basket mask whisk").split()


def sentence():
    words = [rng.choice(WORDS) for _ in range(rng.randrange(5, 18))]
    words[0] = words[0].capitalize()
    return " ".join(words) + rng.choice(".!?.")


def hexs(n):
    return rand("0123456789abcdef", n)


def uuid():
    h = hexs(32)
    return f"{h[:8]}-{h[8:12]}-4{h[13:16]}-a{h[17:20]}-{h[20:]}"


def ident():
    return rng.choice(["user", "order", "item", "count", "total", "config", "result", "value",
                       "handler", "request", "session", "buffer"]) + rng.choice(["", "Id", "s", "_list", "Map"])


def ordinary():
    makers = {}

    def maker(name):
        def register(f):
            makers[name] = f
            return f
        return register

    @maker("prose")
    def _():
        return " ".join(sentence() for _ in range(rng.randrange(1, 6)))

    @maker("prose-about-secrets")
    def _():
        return rng.choice([
            "Set the Authorization header to a bearer token before calling the API.",
            "Basic idea: keep the private key on the server and never paste it in chat.",
            "The AKIA keys were rotated last week; ask ops for the new secret access key.",
            "Authorization: the user signs in first, then the admin approves the request.",
            "Use sk- prefixed keys only in the backend, never in the browser bundle.",
            "Our basic plan costs $12 per month; the bearer of this voucher gets 20% off.",
            "Remember: -----BEGIN PUBLIC KEY----- blocks are safe to share with partners.",
        ]) + " " + sentence()

    @maker("python")
    def _():
        a, b = ident(), ident()
        return rng.choice([
            f"def {a}({b}):\n    return [x * 2 for x in {b} if x > {rng.randrange(100)}]\n",
            f"headers = {{\"Authorization\": f\"Bearer {{token}}\"}}\nresp = requests.get(url, headers=headers, timeout={rng.randrange(3, 30)})",
            f"api_key = os.environ[\"STRIPE_SECRET_KEY\"]\nsecret = os.getenv(\"AWS_SECRET_ACCESS_KEY\")",
            f"for {a} in range({rng.randrange(1, 1000)}):\n    print(f\"{{{a}}}: {{{a} ** 2}}\")",
            f"import hashlib\nprint(hashlib.sha256(b\"{rand(LOWER, 12)}\").hexdigest())",
        ])

    @maker("javascript")
    def _():
        a, b = ident(), ident()
        return rng.choice([
            f"const {a} = await fetch(`/api/{b}/${{id}}`, {{ headers: {{ Authorization: `Bearer ${{token}}` }} }});",
            f"export function {a}({b}) {{\n  return {b}.filter(Boolean).map(String);\n}}",
            f"const {a} = {{ id: {rng.randrange(10**6)}, tags: ['a', 'b'], active: true }};",
            f"document.querySelector('#{b}').addEventListener('click', () => setOpen(o => !o));",
        ])

    @maker("cpp")
    def _():
        a, b = ident(), ident()
        return rng.choice([
            f"for (std::size_t i = 0; i < {a}.size(); ++i) {{\n    {b} += {a}[i];\n}}",
            f"auto {a} = std::make_unique<{b.capitalize()}>(std::move(config));",
            f"static_assert(sizeof({a}) == {rng.choice([4, 8, 16])});",
        ])

    @maker("sql")
    def _():
        return (f"SELECT id, name, created_at FROM {ident()} WHERE account_id = {rng.randrange(10**9)} "
                f"AND created_at > '2024-0{rng.randrange(1, 9)}-1{rng.randrange(10)}' ORDER BY id DESC LIMIT {rng.randrange(1, 500)};")

    @maker("url-long-query")
    def _():
        params = [f"utm_source={rng.choice(['newsletter', 'twitter', 'partner'])}",
                  f"utm_campaign={rand(LOWER + '_', 18)}", f"session={uuid()}",
                  f"state={base64.urlsafe_b64encode(rng.randbytes(rng.randrange(24, 90))).decode().rstrip('=')}",
                  f"sig={hexs(64)}", f"ts={rng.randrange(1_600_000_000_000, 1_800_000_000_000)}",
                  f"q={'+'.join(rng.choice(WORDS) for _ in range(4))}"]
        rng.shuffle(params)
        host = rng.choice(["www.example.com", "shop.example.org", "docs.example.net", "maps.example.com"])
        return f"https://{host}/{rand(LOWER, 6)}/{rand(LOWER + DIGITS, 10)}?" + "&".join(params[:rng.randrange(3, 8)])

    @maker("url")
    def _():
        return f"https://github.com/{rand(LOWER, 7)}/{rand(LOWER + '-', 12).strip('-')}/pull/{rng.randrange(1, 9999)}"

    @maker("hash")
    def _():
        return rng.choice([hexs(32), hexs(40), hexs(64), hexs(128), hexs(7), "sha256:" + hexs(64),
                           f"commit {hexs(40)}", hexs(64).upper()])

    @maker("uuid")
    def _():
        u = uuid()
        return rng.choice([u, u.upper(), "{" + u + "}", f"request_id={u}"])

    @maker("base64-image")
    def _():
        payload = base64.b64encode(rng.randbytes(rng.randrange(150, 3000))).decode()
        return f"data:image/{rng.choice(['png', 'jpeg', 'gif'])};base64,{payload}"

    @maker("path")
    def _():
        return rng.choice([
            f"/home/{rand(LOWER, 5)}/Documents/{rand(LOWER, 8)}/report-{rng.randrange(2019, 2026)}-Q{rng.randrange(1, 5)}.pdf",
            f"~/src/{rand(LOWER, 6)}/build/{rand(LOWER, 4)}/{ident()}.o",
            f"C:\\Users\\{rand(LOWER, 6)}\\AppData\\Local\\Temp\\{uuid()}.tmp",
            f"/var/log/{rand(LOWER, 5)}/{rand(LOWER, 5)}.log.{rng.randrange(1, 9)}.gz",
            f"file:///home/{rand(LOWER, 5)}/Pictures/IMG_{rng.randrange(1000, 9999)}.JPG",
        ])

    @maker("json")
    def _():
        doc = {"id": rng.randrange(10**12), "uuid": uuid(), "name": " ".join(rng.choice(WORDS) for _ in range(3)),
               "createdAt": rng.randrange(1_600_000_000_000, 1_800_000_000_000),
               "price": round(rng.uniform(1, 9999), 2), "tags": [rng.choice(WORDS) for _ in range(3)],
               "checksum": hexs(40), "active": rng.random() < 0.5}
        return json.dumps(doc, indent=rng.choice([None, 2]))

    @maker("log")
    def _():
        ts = f"2024-0{rng.randrange(1, 10)}-{rng.randrange(10, 29)}T{rng.randrange(10, 24)}:{rng.randrange(10, 60)}:{rng.randrange(10, 60)}.{rng.randrange(100, 999)}Z"
        level = rng.choice(["INFO", "WARN", "ERROR", "DEBUG"])
        msg = rng.choice([
            f"request {uuid()} completed in {rng.randrange(1, 900)}ms status=200",
            f"Authorization header missing for /api/v2/{ident()}",
            f"user_id={rng.randrange(10**6)} ip=10.{rng.randrange(256)}.{rng.randrange(256)}.{rng.randrange(256)} action=login",
            f"trace_id={hexs(32)} span_id={hexs(16)} db.query took {rng.random():.3f}s",
            f"retrying job {rng.randrange(10**9)} (attempt {rng.randrange(1, 5)}/5)",
            f"snowflake={rng.randrange(10**18, 2 * 10**18)} event=message_create",
        ])
        return f"{ts} {level} [{rand(LOWER, 6)}] {msg}"

    @maker("shell")
    def _():
        return rng.choice([
            f"git rebase -i HEAD~{rng.randrange(2, 12)}",
            f"docker run --rm -p {rng.randrange(3000, 9000)}:80 registry.example.com/app@sha256:{hexs(64)}",
            f"kubectl -n {rand(LOWER, 6)} logs deploy/{rand(LOWER, 7)} --since=1h | grep -i error",
            f"ssh -i ~/.ssh/id_ed25519 {rand(LOWER, 5)}@10.0.{rng.randrange(256)}.{rng.randrange(256)}",
            f"curl -s -H 'Accept: application/json' https://api.example.test/v1/{ident()}?page={rng.randrange(1, 50)}",
            f"export PATH=\"$HOME/.local/bin:$PATH\"",
        ])

    @maker("contact")
    def _():
        return rng.choice([
            f"{rand(LOWER, 6)}.{rand(LOWER, 7)}@example.com",
            f"+1 ({rng.randrange(200, 999)}) {rng.randrange(200, 999)}-{rng.randrange(1000, 9999)}",
            f"+44 20 {rng.randrange(1000, 9999)} {rng.randrange(1000, 9999)}",
            f"{rng.randrange(1, 999)} {rng.choice(['Elm', 'Oak', 'Maple', 'High'])} Street, Springfield, {rng.randrange(10000, 99999)}",
            f"IBAN DE{rng.randrange(10, 99)} {rng.randrange(1000, 9999)} {rng.randrange(1000, 9999)} {rng.randrange(1000, 9999)} {rng.randrange(1000, 9999)} {rng.randrange(10, 99)}",
        ])

    @maker("numbers")
    def _():
        return rng.choice([
            f"Order #{rng.randrange(10**5, 10**7)} shipped on {rng.randrange(1, 28)}/{rng.randrange(1, 12)}/2024",
            f"Total: ${rng.randrange(1, 99)},{rng.randrange(100, 999)}.{rng.randrange(10, 99)}",
            f"FedEx {rng.randrange(10**11, 10**12)}", f"USPS {rng.randrange(9 * 10**21, 10**22)}",
            f"ISBN 978-{rng.randrange(0, 9)}-{rng.randrange(10, 99)}-{rng.randrange(100000, 999999)}-{rng.randrange(10)}",
            f"{rng.randrange(1_600_000_000_000, 1_800_000_000_000)}",
            f"v{rng.randrange(10)}.{rng.randrange(30)}.{rng.randrange(100)}",
            f"{rng.randrange(2000, 2030)}-{rng.randrange(10, 13)}-{rng.randrange(10, 29)}",
            f"Meeting room {rng.randrange(100, 999)}, floor {rng.randrange(1, 40)}",
            f"{rng.randrange(10**5, 10**6)}.{rng.randrange(10**5, 10**6)} km",
        ])

    @maker("pem-public")
    def _():
        label = rng.choice(["PUBLIC KEY", "CERTIFICATE", "RSA PUBLIC KEY", "PGP PUBLIC KEY BLOCK",
                            "CERTIFICATE REQUEST"])
        b64 = "\n".join(base64.b64encode(rng.randbytes(48)).decode() for _ in range(5))
        return f"-----BEGIN {label}-----\n{b64}\n-----END {label}-----"

    @maker("ssh-public")
    def _():
        return f"ssh-ed25519 {base64.b64encode(rng.randbytes(51)).decode()} {rand(LOWER, 5)}@{rand(LOWER, 6)}"

    @maker("markdown")
    def _():
        return (f"## {sentence()}\n\n- {sentence()}\n- [{rand(LOWER, 6)}](https://example.com/{rand(LOWER, 8)})\n\n"
                f"```\n{rand(LOWER, 4)} --{rand(LOWER, 5)}\n```")

    @maker("csv")
    def _():
        return "\n".join(",".join([str(rng.randrange(10**6)), rng.choice(WORDS), f"{rng.uniform(0, 100):.2f}", uuid()])
                         for _ in range(rng.randrange(2, 8)))

    @maker("slug")
    def _():
        return "-".join(rng.choice(WORDS) for _ in range(rng.randrange(3, 9))) + "-" + rand(LOWER + DIGITS, 40)

    names = sorted(makers)
    out = []
    per = 1200 // len(names) + 1
    for name in names:
        for _ in range(per):
            out.append({"category": name, "text": makers[name]()})
    return out


def write(path, rows):
    with open(path, "w", encoding="utf-8") as f:
        for row in rows:
            f.write(json.dumps(row, ensure_ascii=False) + "\n")


if __name__ == "__main__":
    s = secrets()
    o = ordinary()
    write(os.path.join(HERE, "likely-secrets.jsonl"), s)
    write(os.path.join(HERE, "ordinary-clips.jsonl"), o)
    print(f"{len(s)} secret-shaped strings, {len(o)} ordinary clips")
