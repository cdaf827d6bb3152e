"""The command-line tool vu-mom; docs/vu-mom.md tells how it is used."""
