"""What a call of the binding came to, and what it has to come to where something fails in it.

Without a failure a call ends somehow: that is its clean outcome. The binding's own suite says
whether it is right. Where one operation fails, everything has to be as the documents say:

  * The error of that operation is raised. What only shows errors (tracebacks, reports) fails
    silently: the outcome is the clean one.
  * The library is not called, unless it was called before.
  * Contexts that were handed over before stay, with one reference each; those that were
    not are gone.
  * Native arrays that were allocated before stay. If an allocation fails, none stays.
  * Where a list of field numbers cannot be converted, that is reported as unraisable, and the
    command goes on with a null array.
"""
import collections
import gc
import sys

import recorder

Outcome = collections.namedtuple("Outcome", "error text calls contexts blocks reports")

# Functions that show an error which is set already.
SHOWING = ("vu_mom::add_traceback(", "make_frame(", "vu_mom::report_unraisable(",
           "py::SavedError::", "vu_mom::(anonymous namespace)::make_frame(", "drop_module(")


def shows(site):
    return any(part in site.caller for part in SHOWING)


def contexts_of(token):
    """The contexts that are there for a privdata."""
    return [found for found in gc.get_referrers(token)
            if type(found) is dict and found.get("p") is token and "cb" in found]


def references(thing):
    """The references to a thing that a caller holds in one variable, apart from that."""
    own = {}
    return sys.getrefcount(thing) - sys.getrefcount(own) - 1


def give_back(token):
    """Drops the one reference that each context of a privdata has."""
    for address in [id(context) for context in contexts_of(token)]:
        count = sys.getrefcount(recorder.object_at(address)) - sys.getrefcount({})
        if count != 1:
            raise AssertionError("%d references to a context" % count)
        recorder.give_back(address)


def handed_over(sites, fault):
    """How many contexts were complete before a fault: each is made, then filled."""
    ends = []
    for i, site in enumerate(sites):
        if site.callee == "PyDict_New" and "Request::Request" in site.caller:
            ends.append(i)
        elif "Request::set" in site.caller and ends:
            ends[-1] = i
    return sum(1 for end in ends if end < fault)


def allocated(sites, fault):
    """How many native arrays there were before a fault."""
    if sites[fault].callee == "malloc":
        return 0
    return sum(1 for site in sites[:fault] if site.callee == "malloc")


def expected(clean, sites, fault, converting, error, text):
    """The outcome where `fault`, an index into the sites of the clean call, fails with this
    error. The first so many sites are those of `converting` a list of field numbers."""
    if shows(sites[fault]):
        if "report_unraisable" in sites[fault].caller:  # the name cannot be made
            return clean._replace(reports=tuple((None,) + found[1:] for found in clean.reports))
        return clean
    if sites[fault].callee == "malloc":
        text = ""
    if fault < converting:
        return clean._replace(blocks=allocated(sites, fault),
                              reports=(("vu_mom.size_t_list_to_carr", error, text),))
    sent = sites[fault].callee == "PyErr_SetNone"  # the status of the library is mapped
    return Outcome(error, text, clean.calls if sent else 0,
                   min(clean.contexts, handed_over(sites, fault)),
                   clean.blocks if sent else allocated(sites, fault), clean.reports)


# What a reply came to: the reports, calls of the reply method, references to the context.
Delivered = collections.namedtuple("Delivered", "reports calls references")


def expected_reply(clean, sites, fault, callback, error, text):
    """The same for a reply: the error is reported, and the context kept."""
    site = sites[fault]
    if shows(site):
        if "report_unraisable" in site.caller:
            return clean._replace(reports=tuple((None,) + found[1:] for found in clean.reports))
        return clean
    after_call = "PyObject_Vectorcall" not in [later.callee for later in sites[fault:]]
    refused = site.callee == "PyErr_SetNone"  # no change: the context was given back before
    return Delivered((("vu_mom.%s_cb" % callback, error, text),), clean.calls if after_call else 0,
                     clean.references if refused else 1)
