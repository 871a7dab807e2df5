read_globals = {"base", "DESEGMENT_ONE_MORE_SEGMENT", "DissectorTable", "ENC_UTF_8", "expert", "Field", "frametype",
                "NSTime", "Pref", "Proto", "ProtoExpert", "ProtoField"}
