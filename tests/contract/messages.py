"""Short ways to make the messages of the contract suite."""

from contract_vu import Port, Settings

# Field numbers of Port.
NAME, SPEED, RACK, UP, SITE, HITS, LANES, LAST, SLOT, NOTE = range(1, 11)


def port(site="north", rack=1, slot=1, **fields):
    return Port(site=site, rack=rack, slot=slot, **fields)


def settings(**fields):
    return Settings(**fields)
