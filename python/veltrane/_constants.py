"""veltrane.constants: the enumerations of the type library VELTRANELib.

    veltrane.constants.TYPE_DATE                  -> 1
    veltrane.constants.RFCERROR_LOGON_FAILURE     -> 103
    veltrane.constants.enums["ABAPTYPE"]          -> {"TYPE_CHAR": 0, ...}
    veltrane.constants.name_of("ABAPTYPE", 1)     -> "TYPE_DATE"
"""

from . import _veltrane


class Constants:
    def __init__(self, enums):
        self.enums = enums
        for values in enums.values():
            self.__dict__.update(values)

    def name_of(self, enum, value):
        """The enumerator of `enum` with that value, or None."""
        for name, v in self.enums[enum].items():
            if v == value:
                return name
        return None

    def __repr__(self):
        return f"<veltrane.constants: {', '.join(self.enums)}>"


constants = Constants(_veltrane.enumerations())
