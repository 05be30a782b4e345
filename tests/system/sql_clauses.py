"""Random statements of SQL over the table edr_netdb, made about rows that there are."""

TEXTS = ("ip", "protos", "proc_fpath", "proc_md5", "proc_qid", "proc_puid")
NUMBERS = ("first_seen", "last_seen", "port", "conns_total", "conns_in", "conns_out", "bytes_in", "bytes_out",
           "proc_pid")
COLUMNS = ("ip", "first_seen", "last_seen", "port", "protos", "conns_total", "conns_in", "conns_out", "bytes_in",
           "bytes_out", "proc_fpath", "proc_md5", "proc_qid", "proc_puid", "proc_pid")
COMPARISONS = ("=", "=", "=", "==", "<", "<=", ">", ">=", "!=", "<>", "IS", "IS NOT")
DEEPEST = 4
MOST_IN_A_LIST = 200

ODD_NUMBERS = ("0", "-1", "1e300", "-1e300", "9223372036854775807", "9223372036854775808", "-9223372036854775808",
               "18446744073709551615", "0x7fffffffffffffff", "1e18", "-0.0", "0.5")
ODD_TEXTS = ("", " ", "%", "::1", "2001:db8::1", "256.1.1.1", "1.2.3", "01.2.3.4", "1.2.3.4 ", "0", "1e3", "0x1bb",
             "-1", "18446744073709551615", "18446744073709551616", "00", "g" * 32, "f" * 33, "F" * 64, "NULL", "a'b",
             "\u00e9", "HTTP", "tcp", "/USR/BIN/CURL")
BLOCKS = ("0.0.0.0/0", "224.0.0.0/4", "10.0.0.0/8", "128.0.0.0/1", "239.255.255.250/32", "192.168.1.9/16", "::/0")


def quoted(text):
    return "'%s'" % text.replace("'", "''")


class Clauses:
    """`rows`: dictionaries of all columns, with the values as SQL has them."""

    def __init__(self, rows, random):
        self.rows = rows
        self.random = random

    def chance(self, percent):
        return self.random.randrange(100) < percent

    def value(self, column):
        return self.random.choice(self.rows)[column]

    def column(self):
        return self.random.choice(COLUMNS)

    # --- literals ---

    def recased(self, text):
        return text.upper() if self.chance(50) else "".join(self.random.choice((c.upper(), c.lower())) for c in text)

    def near(self, number):
        away = self.random.choice((1, 500, 999, 1000, 3600000, 86400000, 86399999))
        if self.chance(30):
            number -= number % 86400000
        return number + self.random.choice((-away, 0, away))

    def literal_of(self, value):
        """The value, or one like it, in any of SQL's types."""
        if isinstance(value, str):
            if self.chance(15):
                return quoted(self.recased(value))
            if self.chance(5):
                return quoted(value[:self.random.randrange(len(value) + 1)])
            if self.chance(5):
                return "x'%s'" % value.encode().hex()
            if value.isdigit() and self.chance(40):
                return value
            return quoted(value)
        kind = self.random.randrange(100)
        if kind < 60:
            return str(value)
        if kind < 75:
            return str(self.near(value))
        if kind < 85:
            return quoted(str(value) if self.chance(80) else "%d.0" % value)
        if kind < 95:
            return "%d.%d" % (value, self.random.choice((0, 0, 5, 25)))
        return "x'%s'" % str(value).encode().hex()

    def literal(self, column):
        kind = self.random.randrange(100)
        if kind < 85:
            return self.literal_of(self.value(column))
        if kind < 88:
            return self.literal_of(self.value(self.column()))
        if kind < 92:
            return self.random.choice(ODD_NUMBERS)
        if kind < 97:
            return quoted(self.random.choice(ODD_TEXTS))
        return self.random.choice(("NULL", "x''", "x'00ff'", "TRUE", "CURRENT_DATE"))

    # --- conditions ---

    def pattern(self, column, any_run, any_one):
        text = str(self.value(column))
        for _ in range(self.random.randrange(3)):
            start = self.random.randrange(len(text) + 1)
            end = min(len(text), start + self.random.randrange(6))
            wild = any_run if self.chance(60) else any_one * (end - start)
            text = text[:start] + wild + text[end:]
        if self.chance(40):
            text = self.random.choice((text + any_run, any_run + text, any_run + text + any_run))
        return self.recased(text) if self.chance(30) else text

    def like(self, column):
        word = self.random.choice(("LIKE", "LIKE", "NOT LIKE"))
        if self.chance(3):
            return "%s %s NULL" % (column, word)
        pattern = self.pattern(column, "%", "_")
        if self.chance(10):
            return "%s %s %s ESCAPE '!'" % (column, word, quoted(pattern.replace("_", "!_")))
        return "%s %s %s" % (column, word, quoted(pattern))

    def glob(self, column):
        pattern = self.pattern(column, "*", "?")
        if self.chance(10) and pattern:
            pattern = "[%s-z]%s" % (pattern[0] if pattern[0].isalnum() else "0", pattern[1:])
        return "%s %s %s" % (column, self.random.choice(("GLOB", "NOT GLOB")), quoted(pattern))

    def within(self, column):
        size = self.random.choice((0, 1, 2, 3, 5, 8, 20, MOST_IN_A_LIST))
        values = [self.literal(column) for _ in range(size)]
        return "%s %s (%s)" % (column, "NOT IN" if self.chance(25) else "IN", ", ".join(values))

    def between(self, column):
        first, second = self.literal(column), self.literal(column)
        return "%s %s %s AND %s" % (column, "NOT BETWEEN" if self.chance(15) else "BETWEEN", first, second)

    def comparison(self, column):
        literal = self.literal(column)
        operator = self.random.choice(COMPARISONS)
        if self.chance(10):
            return "%s %s %s" % (literal, operator, column)
        return "%s %s %s%s" % (column, operator, literal, " COLLATE NOCASE" if self.chance(12) else "")

    def function(self):
        ip, time = self.value("ip"), self.random.choice(("first_seen", "last_seen"))
        block = "%s/%d" % (ip, self.random.choice((8, 16, 24, 31, 32)))
        return self.random.choice((
            "in_cidr(ip, %s)" % quoted(block if self.chance(70) else self.random.choice(BLOCKS)),
            "NOT in_cidr(ip, %s)" % quoted(block),
            "in_cidr(proc_fpath, '10.0.0.0/8') IS NULL",
            "ts(%s) LIKE '20%d-%%'" % (time, self.random.randrange(10, 26)),
            "ts(%s) >= '20%d-0%d-01'" % (time, self.random.randrange(10, 26), self.random.randrange(1, 10)),
            "lower(proc_fpath) = lower(%s)" % quoted(self.value("proc_fpath")),
            "length(%s) > %d" % (self.column(), self.random.randrange(12)),
            "+ip = %s" % quoted(ip),
            "proc_fpath COLLATE NOCASE = %s" % quoted(self.recased(self.value("proc_fpath"))),
            "ip COLLATE RTRIM = %s" % quoted(ip + "  "),
            "%s / 86400000 = %d" % (time, self.value(time) // 86400000),
            "%s %s last_seen" % (self.random.choice(NUMBERS), self.random.choice(COMPARISONS)),
            "typeof(%s) = 'integer'" % self.column(),
            "CAST(proc_puid AS INTEGER) > %d" % self.random.randrange(1 << 40)))

    def leaf(self):
        column = self.column()
        kind = self.random.randrange(100)
        if kind < 45:
            return self.comparison(column)
        if kind < 58:
            return self.like(column)
        if kind < 64:
            return self.glob(column)
        if kind < 78:
            return self.within(column)
        if kind < 86:
            return self.between(column)
        if kind < 90:
            return "%s IS %sNULL" % (column, self.random.choice(("", "NOT ")))
        return self.function()

    def nest(self, depth):
        if depth == 0 or self.chance(30):
            return self.leaf()
        if self.chance(12):
            return "NOT (%s)" % self.nest(depth - 1)
        word = self.random.choice((" AND ", " OR "))
        return "(%s)" % word.join(self.nest(depth - 1) for _ in range(self.random.randrange(2, 4)))

    def clause(self):
        return self.nest(self.random.randrange(DEEPEST + 1))


def row_form(number, clause):
    return "SELECT %d AS q, %s FROM edr_netdb WHERE %s" % (number, ", ".join(COLUMNS), clause)


def star_form(number, clause):
    return "SELECT *, %d AS q FROM edr_netdb WHERE %s" % (number, clause)


def key_form(number, clause):
    return "SELECT %d AS q, port, ip, proc_puid, typeof(proc_puid) AS t FROM edr_netdb WHERE %s" % (number, clause)


def count_form(number, clause):
    return "SELECT %d AS q, count(*) AS n FROM edr_netdb WHERE %s" % (number, clause)


class Shapes:
    """Statements that do more with the rows of a clause than select them. Rows come in an order that is total only
    where the name says so."""

    EVERY_COLUMN = ", ".join(COLUMNS)

    def __init__(self, random):
        self.random = random

    def ordered(self, number, clause):
        first = self.random.sample(COLUMNS, 2)
        direction = self.random.choice(("ASC", "DESC", "DESC NULLS LAST"))
        return "%s ORDER BY %s %s, %s COLLATE NOCASE, %s LIMIT %d OFFSET %d" % (
            row_form(number, clause), first[0], direction, first[1], self.EVERY_COLUMN, self.random.randrange(1, 40),
            self.random.randrange(10))

    def grouped(self, number, clause):
        key = self.random.choice(("protos", "port", "proc_fpath", "ip", "first_seen / 86400000", "proc_puid || ''"))
        return ("SELECT %d AS q, %s AS k, count(*) AS n, sum(bytes_in) AS s, min(first_seen) AS f, "
                "max(proc_fpath) AS p, count(DISTINCT ip) AS d FROM edr_netdb WHERE %s GROUP BY k HAVING n > %d" % (
                    number, key, clause, self.random.randrange(3)))

    def distinct(self, number, clause):
        return "SELECT DISTINCT %d AS q, %s FROM edr_netdb WHERE %s" % (
            number, ", ".join(self.random.sample(COLUMNS, 2)), clause)

    def window(self, number, clause):
        return ("SELECT %d AS q, ip, port, row_number() OVER (PARTITION BY proc_fpath ORDER BY %s) AS n, "
                "sum(bytes_out) OVER (PARTITION BY ip ORDER BY first_seen RANGE UNBOUNDED PRECEDING) AS s "
                "FROM edr_netdb WHERE %s" % (number, self.EVERY_COLUMN, clause))

    def sub_select(self, number, clause):
        column = self.random.choice(("ip", "proc_fpath", "port", "proc_puid", "first_seen", "proc_md5"))
        return "SELECT %d AS q, %s FROM edr_netdb WHERE %s %s (SELECT %s FROM edr_netdb WHERE %s)" % (
            number, self.EVERY_COLUMN, column, self.random.choice(("IN", "IN", "NOT IN")), column, clause)

    def scalar(self, number, clause):
        return ("SELECT %d AS q, %s FROM edr_netdb WHERE ip = (SELECT max(ip) FROM edr_netdb WHERE %s)" % (
            number, self.EVERY_COLUMN, clause))

    def union(self, number, clause):
        return ("SELECT %d AS q, ip, port FROM edr_netdb WHERE %s %s SELECT %d, ip, port FROM edr_netdb "
                "WHERE port = 443" % (number, clause,
                                      self.random.choice(("UNION", "UNION ALL", "EXCEPT", "INTERSECT")), number))

    def join(self, number, clause):
        """The clause is about the outer table alone: it has few rows, or the inner one is read too often."""
        column = self.random.choice(("ip", "proc_fpath", "proc_puid", "first_seen", "proc_md5"))
        return ("SELECT %d AS q, a.ip AS ip, a.port AS port, b.ip AS ip2, b.port AS port2, b.first_seen AS f FROM "
                "(SELECT * FROM edr_netdb WHERE %s LIMIT 10000) AS a %s JOIN edr_netdb AS b ON a.%s = b.%s "
                "AND a.port <= b.port" % (number, clause, self.random.choice(("CROSS", "LEFT")), column, column))

    def exists(self, number, clause):
        return ("SELECT %d AS q, a.ip AS ip, a.port AS port FROM (SELECT * FROM edr_netdb WHERE %s LIMIT 10000) AS a "
                "WHERE EXISTS (SELECT 1 FROM edr_netdb AS b WHERE b.ip = a.ip AND b.port <> a.port)" % (number, clause))

    def row_value(self, number, clause):
        columns = ", ".join(self.random.sample(("ip", "port", "proc_fpath", "first_seen", "proc_md5", "proc_puid"), 2))
        return ("SELECT %d AS q, ip, port, first_seen FROM edr_netdb WHERE (%s) IN "
                "(SELECT %s FROM edr_netdb WHERE %s)" % (number, columns, columns, clause))

    def outer_condition(self, number, clause):
        """A condition on the inner table after an outer join, which must not go down as if it were one of the join."""
        column = self.random.choice(("ip", "proc_fpath", "proc_puid", "first_seen", "proc_md5"))
        return ("SELECT %d AS q, a.ip AS ip, a.port AS port, b.port AS port2 FROM (SELECT * FROM edr_netdb WHERE %s "
                "LIMIT 10000) AS a LEFT JOIN edr_netdb AS b ON a.%s = b.%s AND a.port < b.port WHERE %s" % (
                    number, clause, column, column, self.random.choice((
                        "b.ip IS NULL", "b.ip IS NULL OR b.proc_fpath = a.proc_fpath", "b.first_seen >= a.first_seen",
                        "b.ip IS a.ip", "coalesce(b.proc_fpath, '') LIKE '%'"))))

    def right_join(self, number, clause):
        column = self.random.choice(("ip", "proc_fpath", "proc_puid", "last_seen", "proc_qid"))
        return ("SELECT %d AS q, a.ip AS ip, a.port AS port, b.ip AS ip2, b.port AS port2 FROM edr_netdb AS a %s JOIN "
                "(SELECT * FROM edr_netdb WHERE %s LIMIT 10000) AS b ON a.%s = b.%s AND a.port > b.port" % (
                    number, self.random.choice(("RIGHT", "FULL")), clause, column, column))

    def of_another_type(self, number, clause):
        """Values of any type and collation, as columns have them."""
        column = self.random.choice(("ip", "first_seen", "proc_fpath", "proc_md5", "proc_puid"))
        kind = self.random.choice(("TEXT", "INTEGER", "REAL", "NUMERIC", "BLOB"))
        return ("SELECT %d AS q, a.n AS n, b.ip AS ip, b.port AS port FROM (SELECT port AS n, CAST(%s AS %s) AS v "
                "FROM edr_netdb WHERE %s LIMIT 10000) AS a CROSS JOIN edr_netdb AS b ON b.%s %s a.v%s" % (
                    number, column, kind, clause, column, self.random.choice(("=", "IS", "<", ">=", "LIKE")),
                    self.random.choice(("", "", " COLLATE NOCASE"))))

    def through_a_view(self, number, clause):
        return ("WITH v AS (SELECT ip, port, first_seen AS t, proc_fpath AS p FROM edr_netdb WHERE %s UNION ALL "
                "SELECT ip, port, last_seen, lower(proc_fpath) FROM edr_netdb) SELECT %d AS q, * FROM v WHERE "
                "p %s (SELECT max(proc_fpath) FROM edr_netdb WHERE %s) AND t >= (SELECT min(last_seen) FROM edr_netdb)"
                % (clause, number, self.random.choice(("=", "LIKE")), clause))


# Of Shapes, with the most rows that the clause may have.
SHAPES = ((Shapes.ordered, None), (Shapes.grouped, None), (Shapes.distinct, None), (Shapes.window, None),
          (Shapes.sub_select, None), (Shapes.scalar, None), (Shapes.union, None), (Shapes.join, 20),
          (Shapes.exists, 20), (Shapes.row_value, None), (Shapes.outer_condition, 20), (Shapes.right_join, 20),
          (Shapes.of_another_type, 20), (Shapes.through_a_view, None))
