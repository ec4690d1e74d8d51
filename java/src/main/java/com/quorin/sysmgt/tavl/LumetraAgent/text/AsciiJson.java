package com.quorin.sysmgt.tavl.LumetraAgent.text;

import com.fasterxml.jackson.core.json.JsonWriteFeature;
import com.fasterxml.jackson.databind.ObjectMapper;
import com.fasterxml.jackson.databind.json.JsonMapper;

/** JSON for files and pipes: everything beyond ASCII is escaped, so that a line is one line for every reader. */
public final class AsciiJson {

    public static final ObjectMapper MAPPER =
            JsonMapper.builder().enable(JsonWriteFeature.ESCAPE_NON_ASCII).build();

    private AsciiJson() {}
}
