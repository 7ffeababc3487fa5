"""Reading tables: RFC_READ_TABLE through the session's table reader, in pages,
and in several reads per page when the fields do not fit one data line. The
plan (selection lines, field groups) is the veltrane command's own, reached
through the extension module."""

from ._veltrane import field_list, schema_of, selection_lines, split_fields


def _listed(value):
    """None, one text, or several texts as a list."""
    if value is None:
        return []
    return [value] if isinstance(value, str) else list(value)


class TableRead:
    """The rows of one table read: iterate over it for dicts, one page read at a
    time; `fields` lists the columns (read from the system on first use);
    to_list() and to_pandas() take all rows. Each iteration reads anew."""

    def __init__(self, client, table, fields, where, *, max_rows, skip, page_size, raw):
        if max_rows < 0 or skip < 0 or page_size < 0:
            raise ValueError("max_rows, skip and page_size must not be negative")
        self._client = client
        self.table = table.upper()
        self._wanted = field_list(_listed(fields))
        self._query = selection_lines(_listed(where))
        self._max_rows, self._skip, self._page_size, self._raw = max_rows, skip, page_size, raw
        self._layout = None

    @property
    def fields(self):
        return [name for name, _, _ in self._plan()]

    def __iter__(self):
        for page in self.pages():
            yield from page

    def pages(self):
        """The rows page by page, each page a list of dicts."""
        layout = self._plan()
        groups = split_fields([(name, length) for name, length, _ in layout])
        session = self._client._require()
        reader = session.GetTableReader(self.table)
        if self._raw:
            reader.Option["tablereader.rawstrings"] = "X"
        for line in self._query:
            reader.Query.Add(line)
        order = [name for name, _, _ in layout]
        total = 0
        while True:
            want = self._page_size
            if self._max_rows:
                want = min(want, self._max_rows - total) if want else self._max_rows - total
                if want <= 0:
                    return
            rows = self._read_page(reader, layout, groups, order, want, self._skip + total)
            total += len(rows)
            if rows:
                yield rows
            if want == 0 or len(rows) < want:
                return

    def to_list(self):
        return list(self)

    def to_pandas(self):
        """All rows as a pandas.DataFrame with the columns in the order of `fields`."""
        try:
            import pandas
        except ImportError:
            raise ImportError("to_pandas() needs pandas (Debian: python3-pandas)") from None
        return pandas.DataFrame.from_records(self.to_list(), columns=self.fields)

    def __repr__(self):
        return f"<veltrane.TableRead {self.table}>"

    def _plan(self):
        """(name, length, type letter) of the fields to read, from RFC_READ_TABLE with
        NO_DATA: the system checks names and selection and sends no rows."""
        if self._layout is None:
            answer = self._client.call("RFC_READ_TABLE", QUERY_TABLE=self.table, DELIMITER=" ", NO_DATA="X",
                                       OPTIONS=[{"TEXT": line} for line in self._query],
                                       FIELDS=[{"FIELDNAME": name} for name in self._wanted])
            layout = []
            for row in answer["FIELDS"]:
                length = str(row["LENGTH"]).strip()
                if not length.isdigit():
                    raise ValueError(f"RFC_READ_TABLE gave the length {length!r} for field {row['FIELDNAME']}")
                layout.append((row["FIELDNAME"].strip(), int(length), row["TYPE"].strip()))
            if not layout:
                raise ValueError(f"RFC_READ_TABLE lists no fields for table {self.table}")
            self._layout = layout
        return self._layout

    def _read_page(self, reader, layout, groups, order, count, start):
        if start > 0x7FFFFFFF or count > 0x7FFFFFFF:
            raise ValueError("the rows to skip and read go beyond 2147483647")
        parts = []
        for group in groups:
            names = reader.Fields
            names.RemoveAll()
            for i in group:
                names.Add(layout[i][0])
            reader.Read(count, start)
            if reader.Error:
                raise self._client._recorded(reader.ErrorInfo)
            rows = reader.Rows
            part = schema_of(rows.RfcType, self._client._backend.signed_int1).read_rows(rows, False) if rows is not None else []
            if parts and len(part) != len(parts[0]):
                raise RuntimeError(f"the partial reads of {self.table} gave {len(parts[0])} and {len(part)} rows: "
                                   "the table changed while it was read")
            parts.append(part)
        if len(parts) == 1:
            return parts[0]
        return [{name: merged[name] for name in order}
                for merged in ({k: v for part in row for k, v in part.items()} for row in zip(*parts))]
