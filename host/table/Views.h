// Views: questions that everybody asks of edr_netdb, as views.
#pragma once

namespace Host::Table {

// Statements that make the table's views. Sums that no whole number of 53 bits holds are real numbers there, never an
// error.
inline constexpr char kViews[] = R"(
CREATE VIEW processes AS
SELECT proc_fpath,
       min(first_seen) AS first_seen,
       max(last_seen) AS last_seen,
       count(DISTINCT first_seen / 86400000) AS days,
       count(DISTINCT ip) AS addresses,
       iif(total(conns_total) < 9007199254740992, CAST(total(conns_total) AS INTEGER), total(conns_total))
         AS conns_total,
       iif(total(bytes_in) < 9007199254740992, CAST(total(bytes_in) AS INTEGER), total(bytes_in)) AS bytes_in,
       iif(total(bytes_out) < 9007199254740992, CAST(total(bytes_out) AS INTEGER), total(bytes_out)) AS bytes_out
FROM edr_netdb
GROUP BY proc_fpath;

CREATE VIEW days AS
SELECT date(first_seen / 1000, 'unixepoch') AS day,
       count(*) AS rows,
       count(DISTINCT ip) AS addresses,
       count(DISTINCT nullif(proc_fpath, '')) AS processes,
       iif(total(conns_total) < 9007199254740992, CAST(total(conns_total) AS INTEGER), total(conns_total))
         AS conns_total,
       iif(total(bytes_in) < 9007199254740992, CAST(total(bytes_in) AS INTEGER), total(bytes_in)) AS bytes_in,
       iif(total(bytes_out) < 9007199254740992, CAST(total(bytes_out) AS INTEGER), total(bytes_out)) AS bytes_out
FROM edr_netdb
GROUP BY first_seen / 86400000;
)";

}  // namespace Host::Table
